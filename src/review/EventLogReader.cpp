#include "review/EventLogReader.h"

#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>

namespace {

// The question's end counts for its card only when it came shortly before.
constexpr double kQuestionEndWindow = 30.0;

QString str(const QJsonObject &o, const char *key)
{
    return o.value(QLatin1String(key)).toString();
}

double num(const QJsonObject &o, const char *key)
{
    return o.value(QLatin1String(key)).toDouble();
}

// What a "client" line of the log means for the timeline, if anything.
std::optional<SessionReview::Notice> noticeFromMessage(double at, const QString &message)
{
    using Kind = SessionReview::Notice::Kind;
    if (message.startsWith(QLatin1String("Reconnecting")) || message.startsWith(QLatin1String("Cycling session"))
        || message.startsWith(QLatin1String("Answer transcription: reconnecting")))
        return SessionReview::Notice{at, Kind::reconnect, message};
    if (message.startsWith(QLatin1String("Not reconnecting")) || message.startsWith(QLatin1String("Session expired"))
        || message.startsWith(QLatin1String("API error")) || message.startsWith(QLatin1String("Transcription failed")))
        return SessionReview::Notice{at, Kind::problem, message};
    return std::nullopt;
}

} // namespace

// Relates the interviewer's speech to the cards (when each question ended) and to your
// answers (those begun while the interviewer still spoke).
void EventLogReader::linkSpeech(SessionReview &review)
{
    double previousCard = -1;
    for (SessionReview::Card &card : review.cards) {
        card.questionEndedAt.reset();
        for (const SessionReview::Span &span : std::as_const(review.interviewer)) {
            if (!card.fromScreen && span.end <= card.shownAt && card.shownAt - span.end <= kQuestionEndWindow
                && span.end > previousCard)
                card.questionEndedAt = span.end;   // the last to end before the card
        }
        previousCard = card.shownAt;
    }
    for (SessionReview::Answer &answer : review.answers) {
        answer.startedOverInterviewer = false;
        for (const SessionReview::Span &span : std::as_const(review.interviewer)) {
            if (span.start < answer.span.start && answer.span.start < span.end)
                answer.startedOverInterviewer = true;
        }
    }
}

void EventLogReader::read(const QJsonObject &e)
{
    const QString event = str(e, "event");
    const double t = num(e, "t");
    m_review.length = std::max(m_review.length, t);
    const QString pair = str(e, "pair");
    if (event == QLatin1String("config")) {
        m_review.model = str(e, "model");
        m_review.transcribeModel = str(e, "transcribe_model");
        m_review.demo = e.value(QLatin1String("demo")).toBool();
    } else if (event == QLatin1String("speech_started")) {
        m_review.hasInterviewerSpeech = true;
        m_speechStart = t;
    } else if (event == QLatin1String("speech_stopped")) {
        m_review.hasInterviewerSpeech = true;
        m_review.interviewer << SessionReview::Span{m_speechStart.value_or(t), t};
        m_speechStart.reset();
    } else if (event == QLatin1String("question") || event == QLatin1String("screen_question")) {
        SessionReview::Card card;
        card.pair = pair;
        card.question = event == QLatin1String("question") ? str(e, "text") : tr("(question on the screen)");
        card.fromScreen = event == QLatin1String("screen_question");
        card.shownAt = t;
        if (const auto early = m_early.constFind(pair); early != m_early.constEnd()) {
            // The answer may start before the question's transcript is complete.
            card.firstTextAt = early->firstTextAt;
            card.responseCost = early->responseCost;
            card.transcriptionCost = early->transcriptionCost;
            card.hasCost = early->hasCost;
            m_early.erase(early);
        }
        m_review.cards << card;
    } else if (event == QLatin1String("question_extended")) {
        if (SessionReview::Card *card = find(pair)) {
            card->question = str(e, "merged");
            card->followUps << str(e, "added");
            card->followUpsAt << t;
        }
    } else if (event == QLatin1String("answer_started")) {
        if (SessionReview::Card *card = findOrEarly(pair); card && !card->firstTextAt)
            card->firstTextAt = t;
        m_lastAnswered = pair;   // a response's usage follows it
    } else if (event == QLatin1String("answer_done")) {
        if (SessionReview::Card *card = find(pair)) {
            card->draft = str(e, "answer");
            if (!str(e, "question").isEmpty())
                card->question = str(e, "question");
            card->failed = false;
        }
        m_lastAnswered = pair;
    } else if (event == QLatin1String("answer_failed")) {
        if (SessionReview::Card *card = find(pair); card && card->draft.isEmpty())
            card->failed = true;
        m_lastAnswered = pair;
    } else if (event == QLatin1String("usage")) {
        const double cost = num(e, "response_cost_usd");
        addCost(m_review.model, cost);
        if (SessionReview::Card *card = findOrEarly(m_lastAnswered)) {
            card->responseCost += cost;
            card->hasCost = true;
        }
    } else if (event == QLatin1String("transcription_usage")) {
        const double cost = num(e, "cost_usd");
        addCost(str(e, "model").isEmpty() ? m_review.transcribeModel : str(e, "model"), cost);
        if (SessionReview::Card *card = findOrEarly(pair)) {
            card->transcriptionCost += cost;
            card->hasCost = true;
        }
    } else if (event == QLatin1String("answer_transcription_usage")) {
        addCost(m_review.transcribeModel, num(e, "cost_usd"));
    } else if (event == QLatin1String("session_cost")) {
        m_review.totalCost = num(e, "cost_usd");
    } else if (event == QLatin1String("you_started")) {
        m_youStarted = t;
    } else if (event == QLatin1String("you_stopped")) {
        SessionReview::Answer answer;
        answer.pair = pair;
        answer.span = {m_youStarted.value_or(t - num(e, "seconds")), t};
        answer.words = e.value(QLatin1String("words")).toInt();
        answer.text = str(e, "text");
        m_youStarted.reset();
        m_review.answers << answer;
        if (SessionReview::Card *card = find(pair); card && !answer.text.isEmpty())
            card->yourAnswer += (card->yourAnswer.isEmpty() ? QString() : QStringLiteral(" ")) + answer.text;
    } else if (event == QLatin1String("client")) {
        if (const auto notice = noticeFromMessage(t, str(e, "message")))
            m_review.notices << *notice;
    } else if (event == QLatin1String("banner")) {
        m_review.notices << SessionReview::Notice{t, SessionReview::Notice::Kind::banner, str(e, "text")};
    } else if (event == QLatin1String("audio_health")) {
        readHealth(t, e);
    } else if (event == QLatin1String("record_failed")) {
        m_review.notices << SessionReview::Notice{t, SessionReview::Notice::Kind::problem,
                                                  tr("Could not write %1: %2")
                                                      .arg(QFileInfo(str(e, "path")).fileName(), str(e, "error"))};
    } else if (event == QLatin1String("transcribe_model_fallback")) {
        m_review.transcribeModel = str(e, "model");
        m_review.notices << SessionReview::Notice{t, SessionReview::Notice::Kind::info,
                                                  tr("Transcription fell back to %1").arg(str(e, "model"))};
    } else if (event == QLatin1String("session_ended")) {
        m_review.ended = true;
    }
}

void EventLogReader::finish()
{
    if (m_review.demo) {
        // A sample interview's stand-in charges nothing, whatever the prices would say.
        for (SessionReview::Card &card : m_review.cards)
            card.responseCost = card.transcriptionCost = 0;
        for (double &cost : m_review.costByModel)
            cost = 0;
        m_review.totalCost = 0.0;
    }
    if (m_speechStart)   // the log ended mid-question
        m_review.interviewer << SessionReview::Span{*m_speechStart, m_review.length};
    linkSpeech(m_review);
}

SessionReview::Card *EventLogReader::find(const QString &pair)
{
    for (qsizetype i = m_review.cards.size() - 1; i >= 0 && !pair.isEmpty(); --i) {
        if (m_review.cards[i].pair == pair)
            return &m_review.cards[i];
    }
    return nullptr;
}

// A card not yet shown (its answer came first) is kept aside until its question.
SessionReview::Card *EventLogReader::findOrEarly(const QString &pair)
{
    if (SessionReview::Card *card = find(pair))
        return card;
    return pair.isEmpty() ? nullptr : &m_early[pair];
}

void EventLogReader::addCost(const QString &model, double cost)
{
    if (cost > 0 || !m_review.costByModel.contains(model))
        m_review.costByModel[model.isEmpty() ? tr("unknown model") : model] += cost;
}

void EventLogReader::readHealth(double t, const QJsonObject &e)
{
    using Kind = SessionReview::Notice::Kind;
    const struct { const char *key; const char *lost; const char *back; } parts[] = {
        {"sound_server", QT_TRANSLATE_NOOP("EventLogReader", "Sound server lost"),
         QT_TRANSLATE_NOOP("EventLogReader", "Sound server back")},
        {"meeting", QT_TRANSLATE_NOOP("EventLogReader", "Meeting audio lost"),
         QT_TRANSLATE_NOOP("EventLogReader", "Meeting audio back")},
        {"microphone", QT_TRANSLATE_NOOP("EventLogReader", "Microphone lost"),
         QT_TRANSLATE_NOOP("EventLogReader", "Microphone back")}};
    for (const auto &part : parts) {
        const QString key = QLatin1String(part.key);
        if (!e.contains(key))
            continue;
        const bool ok = e.value(key).toBool();
        const bool seen = m_health.contains(key);
        if ((!seen && !ok) || (seen && m_health.value(key) != ok))
            m_review.notices << SessionReview::Notice{t, ok ? Kind::info : Kind::problem,
                                                      tr(ok ? part.back : part.lost)};
        m_health.insert(key, ok);
    }
}
