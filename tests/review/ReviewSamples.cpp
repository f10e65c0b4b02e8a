#include "ReviewSamples.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace {

class LogBuilder
{
public:
    void add(double t, const char *event, QJsonObject fields = {})
    {
        fields.insert(QStringLiteral("t"), t);
        fields.insert(QStringLiteral("event"), QLatin1String(event));
        m_bytes += QJsonDocument(fields).toJson(QJsonDocument::Compact) + '\n';
    }
    QByteArray bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

const QStringList kQuestions{
    QStringLiteral("Tell me about yourself."),
    QStringLiteral("Why this role?"),
    QStringLiteral("Describe a system you designed end to end."),
    QStringLiteral("How do you handle disagreement on a code review?"),
    QStringLiteral("What is the hardest bug you have fixed?"),
    QStringLiteral("How would you design a rate limiter for a public API?"),
    QStringLiteral("Tell me about a time you missed a deadline."),
    QStringLiteral("How do you decide what to test?"),
};

} // namespace

QByteArray ReviewSamples::fortyCardLog()
{
    LogBuilder log;
    log.add(0, "session_started");
    log.add(0, "config", {{QStringLiteral("model"), QStringLiteral("gpt-realtime")},
                          {QStringLiteral("transcribe_model"), QStringLiteral("gpt-4o-transcribe")}});
    double t = 4;
    double total = 0;
    for (int i = 0; i < 40; ++i) {
        const QString pair = QStringLiteral("p%1").arg(i);
        const QString item = QStringLiteral("item_%1").arg(i);
        const double asking = 5 + (i * 7) % 11;
        log.add(t, "speech_started", {{QStringLiteral("item"), item}});
        log.add(t + asking, "speech_stopped", {{QStringLiteral("item"), item}});
        const double shown = t + asking + 0.6 + (i % 3) * 0.2;
        log.add(shown, "question", {{QStringLiteral("pair"), pair},
                                    {QStringLiteral("text"), kQuestions.at(i % kQuestions.size()) + QStringLiteral(" (%1)").arg(i + 1)}});
        const double first = shown + 0.7 + (i % 5) * 0.3;
        log.add(first, "answer_started", {{QStringLiteral("pair"), pair}, {QStringLiteral("response"), QStringLiteral("r%1").arg(i)}});
        const double youStart = first + 1.5 - (i % 9 == 0 ? 4 : 0);
        log.add(youStart, "you_started", {{QStringLiteral("pair"), pair}});
        log.add(first + 3, "answer_done", {{QStringLiteral("pair"), pair},
                                           {QStringLiteral("answer"), QStringLiteral("Situation, task, action, result — with numbers. Keep it to two minutes.")}});
        const double cost = 0.004 + (i % 4) * 0.001;
        total += cost;
        log.add(first + 3.1, "usage", {{QStringLiteral("response_cost_usd"), cost}});
        if (i == 12)
            log.add(first + 10, "client", {{QStringLiteral("message"), QStringLiteral("Reconnecting in 1s — the connection was lost")}});
        if (i == 25)
            log.add(first + 5, "banner", {{QStringLiteral("text"), QStringLiteral("Microphone lost — answers are not timed until it is back.")}});
        if (i == 30)
            log.add(first + 10, "client", {{QStringLiteral("message"), QStringLiteral("Cycling session (60 min limit)")}});
        const double speaking = 35 + (i * 37) % 110;
        log.add(youStart + speaking, "you_stopped", {{QStringLiteral("pair"), pair}, {QStringLiteral("seconds"), speaking},
                                                     {QStringLiteral("text"), QStringLiteral("My answer to question %1.").arg(i + 1)}});
        if (i == 20) {
            log.add(youStart + speaking + 1, "question_extended", {{QStringLiteral("pair"), pair},
                                                                   {QStringLiteral("added"), QStringLiteral("And how did you measure it?")},
                                                                   {QStringLiteral("merged"), kQuestions.at(i % kQuestions.size()) + QStringLiteral(" And how did you measure it?")}});
        }
        t = youStart + speaking + 3;
    }
    log.add(t, "session_cost", {{QStringLiteral("cost_usd"), total}});
    log.add(t + 0.5, "session_ended");
    return log.bytes();
}

QByteArray ReviewSamples::hostileLog()
{
    const QString longWord = QString(300, QLatin1Char('W'));
    LogBuilder log;
    log.add(0, "session_started");
    log.add(0, "config", {{QStringLiteral("model"), QStringLiteral("<b>model</b>")}});
    log.add(2, "speech_started", {{QStringLiteral("item"), QStringLiteral("i1")}});
    log.add(5, "speech_stopped", {{QStringLiteral("item"), QStringLiteral("i1")}});
    log.add(6, "question", {{QStringLiteral("pair"), QStringLiteral("h1")},
                            {QStringLiteral("text"), QStringLiteral("<script>alert(\"q\")</script> Tom & Jerry's \"quote\" {{TIMELINE}} ") + longWord}});
    log.add(7, "answer_started", {{QStringLiteral("pair"), QStringLiteral("h1")}});
    log.add(8, "answer_done", {{QStringLiteral("pair"), QStringLiteral("h1")},
                               {QStringLiteral("answer"), QStringLiteral("<img src=x onerror=alert(1)> a&b <!-- c --> ") + longWord}});
    log.add(9, "you_started", {{QStringLiteral("pair"), QStringLiteral("h1")}});
    log.add(70, "you_stopped", {{QStringLiteral("pair"), QStringLiteral("h1")}, {QStringLiteral("seconds"), 61},
                                {QStringLiteral("text"), QStringLiteral("</details><script>x</script>")}});
    log.add(71, "client", {{QStringLiteral("message"), QStringLiteral("API error: <b>bad</b> & \"worse\"")}});
    log.add(72, "usage", {{QStringLiteral("response_cost_usd"), 0.002}});
    log.add(73, "session_ended");
    return log.bytes();
}
