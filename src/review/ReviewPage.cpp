#include "review/ReviewPage.h"

#include "review/ReviewLogging.h"
#include "review/ReviewTimeline.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringList>

#include <cmath>

namespace {

QString esc(const QString &text)
{
    return text.toHtmlEscaped();
}

// Paragraphs of record text: escaped, blank lines between paragraphs, line breaks kept.
QString paragraphs(const QString &text)
{
    QStringList out;
    for (const QString &part : text.split(QStringLiteral("\n\n"), Qt::SkipEmptyParts))
        out << QStringLiteral("<p>") + esc(part.trimmed()).replace(QLatin1Char('\n'), QStringLiteral("<br>")) + QStringLiteral("</p>");
    return out.join(QString());
}

QString seconds(std::optional<double> value)
{
    return value ? ReviewPage::tr("%1 s").arg(QString::number(*value, 'f', 1)) : QStringLiteral("—");
}

// Cents for whole dollars, more places for the small sums a card costs.
QString money(double usd)
{
    const int places = usd == 0 || usd >= 1 ? 2 : usd >= 0.01 ? 3 : 4;
    return QStringLiteral("$") + QString::number(usd, 'f', places);
}

QString tile(const QString &value, const QString &label, const QString &detail = {})
{
    return QStringLiteral("<div class=\"tile\"><div class=\"value\">%1</div><div class=\"label\">%2</div>%3</div>")
        .arg(value, esc(label), detail.isEmpty() ? QString() : QStringLiteral("<div class=\"detail\">%1</div>").arg(esc(detail)));
}

// "2026-11-21_14-05-09" (or "demo_…") as "21 November 2026, 14:05".
QString when(const QString &stamp)
{
    QString bare = stamp;
    bare.remove(QStringLiteral("demo_"));
    const QDateTime at = QDateTime::fromString(bare.left(19), QStringLiteral("yyyy-MM-dd_HH-mm-ss"));
    return at.isValid() ? QLocale::c().toString(at, QStringLiteral("d MMMM yyyy, HH:mm")) : stamp;
}

QString shortText(const QString &text, int chars = 90)
{
    return text.size() <= chars ? text : text.left(chars - 1).trimmed() + QStringLiteral("…");
}

// An empty section's one sentence.
QString empty(const QString &sentence)
{
    return QStringLiteral("<p class=\"empty\">%1</p>").arg(esc(sentence));
}

QString tiles(const SessionReview &review, const ReviewFigures &f)
{
    QStringList out;
    out << tile(ReviewTimeline::clock(review.length), ReviewPage::tr("Length"));
    out << tile(QString::number(review.cards.size()), ReviewPage::tr("Questions"));
    if (f.yourShare)
        out << tile(ReviewPage::tr("%1%").arg(std::lround(*f.yourShare * 100)), ReviewPage::tr("Your talk time"),
                    ReviewPage::tr("%1 you · %2 interviewer")
                        .arg(ReviewTimeline::clock(f.yourSeconds), ReviewTimeline::clock(f.interviewerSeconds)));
    else if (!review.answers.isEmpty())
        out << tile(ReviewTimeline::clock(f.yourSeconds), ReviewPage::tr("You spoke"));
    if (!review.answers.isEmpty())
        out << tile(ReviewPage::tr("%1 of %2").arg(f.answersInBand).arg(review.answers.size()), ReviewPage::tr("Answers on target"),
                    ReviewPage::tr("%1–%2 s").arg(f.band.minSeconds).arg(f.band.maxSeconds));
    if (f.medianToText)
        out << tile(seconds(f.medianToText), ReviewPage::tr("Median time to help"));
    if (review.totalCost)
        out << tile(money(*review.totalCost), ReviewPage::tr("Cost"), review.demo ? ReviewPage::tr("sample interview") : QString());
    return out.join(QLatin1Char('\n'));
}

QString answersSection(const SessionReview &review, const ReviewFigures &f)
{
    if (review.answers.isEmpty())
        return empty(ReviewPage::tr("No answers of yours were timed in this session."));
    QStringList out;
    out << ReviewTimeline::answerBars(review, f);
    out << QStringLiteral("<ul class=\"facts\">");
    // A legend: each count follows its colour's swatch.
    out << QStringLiteral("<li><span class=\"swatch band\"></span>%1 <span class=\"swatch ok\"></span>%2 "
                          "<span class=\"swatch short\"></span>%3 <span class=\"swatch long\"></span>%4</li>")
               .arg(esc(ReviewPage::tr("Target %1–%2 s:").arg(f.band.minSeconds).arg(f.band.maxSeconds)),
                    esc(ReviewPage::tr("%1 within,").arg(f.answersInBand)),
                    esc(ReviewPage::tr("%1 shorter,").arg(f.answersShort)),
                    esc(ReviewPage::tr("%1 longer").arg(f.answersLong)));
    const auto which = [&](int index) {
        const SessionReview::Answer &a = review.answers.at(index);
        return ReviewPage::tr("answer %1, %2 (at %3)")
            .arg(index + 1)
            .arg(ReviewTimeline::clock(a.span.seconds()), ReviewTimeline::clock(a.span.start));
    };
    const auto item = [](const QString &sentence) { return QStringLiteral("<li>%1</li>").arg(esc(sentence)); };
    if (f.longest)
        out << item(ReviewPage::tr("Longest: %1").arg(which(*f.longest)));
    if (f.shortest && review.answers.size() > 1)
        out << item(ReviewPage::tr("Shortest: %1").arg(which(*f.shortest)));
    if (review.hasInterviewerSpeech) {
        const int over = f.startedOverInterviewer;
        // Two sentences rather than tr()'s %n form, which would show its "(s)" untranslated.
        out << item(over == 0 ? ReviewPage::tr("You never started while the interviewer was still speaking.")
                    : over == 1
                        ? ReviewPage::tr("You started speaking while the interviewer still spoke %1 time.").arg(over)
                        : ReviewPage::tr("You started speaking while the interviewer still spoke %1 times.").arg(over));
    }
    out << QStringLiteral("</ul>");
    if (f.yourShare) {
        const long you = std::lround(*f.yourShare * 100);
        out << QStringLiteral("<h3>%1</h3>").arg(esc(ReviewPage::tr("Talk time"))) << ReviewTimeline::shareBar(f);
        out << QStringLiteral("<p class=\"legend\"><span class=\"swatch you\"></span>%1 &nbsp; "
                              "<span class=\"swatch them\"></span>%2</p>")
                   .arg(esc(ReviewPage::tr("You %1 (%2%)").arg(ReviewTimeline::clock(f.yourSeconds)).arg(you)),
                        esc(ReviewPage::tr("Interviewer %1 (%2%)").arg(ReviewTimeline::clock(f.interviewerSeconds)).arg(100 - you)));
    }
    return out.join(QLatin1Char('\n'));
}

QString speedSection(const SessionReview &review, const ReviewFigures &f)
{
    if (f.speeds.isEmpty())
        return empty(ReviewPage::tr("No answer arrived in this session."));
    double slowest = 1;
    for (const ReviewFigures::Speed &s : f.speeds)
        slowest = std::max(slowest, s.total());
    const bool fromQuestion = f.medianQuestionToCard.has_value();
    QStringList out;
    out << QStringLiteral("<table class=\"speed\"><thead><tr><th>#</th><th>%1</th><th class=\"num\">%2</th>"
                          "<th class=\"num\">%3</th><th class=\"num\">%4</th><th class=\"meter-col\"></th></tr></thead><tbody>")
               .arg(esc(ReviewPage::tr("Question")), esc(ReviewPage::tr("Question end → card")),
                    esc(ReviewPage::tr("Card → first words")),
                    esc(fromQuestion ? ReviewPage::tr("Question end → first words") : ReviewPage::tr("Total")));
    for (const ReviewFigures::Speed &s : f.speeds) {
        const SessionReview::Card &card = review.cards.at(s.card);
        // An answer that began before the question's text was complete: its card came after.
        const QString cardToText = s.cardToText < 0 ? esc(ReviewPage::tr("before the card")) : seconds(s.cardToText);
        out << QStringLiteral("<tr><td>%1</td><td class=\"q\">%2</td><td class=\"num\">%3</td><td class=\"num\">%4</td>"
                              "<td class=\"num\"><b>%5</b></td><td class=\"meter-col\"><span class=\"meter\" style=\"width:%6%\"></span></td></tr>")
                   .arg(s.card + 1).arg(esc(shortText(card.question)), seconds(s.questionToCard), cardToText, seconds(s.total()))
                   .arg(QString::number(std::max(s.total(), 0.0) / slowest * 100, 'f', 0));
    }
    out << QStringLiteral("</tbody><tfoot><tr><td></td><td>%1</td><td class=\"num\">%2</td><td></td><td class=\"num\"><b>%3</b></td><td></td></tr></tfoot></table>")
               .arg(esc(ReviewPage::tr("Median")), seconds(f.medianQuestionToCard), seconds(f.medianToText));
    if (!fromQuestion)
        out << QStringLiteral("<p class=\"note-inline\">%1</p>")
                   .arg(esc(ReviewPage::tr("When the interviewer stopped speaking is not in this log: times start at the card.")));
    return out.join(QLatin1Char('\n'));
}

QString costSection(const SessionReview &review)
{
    if (!review.totalCost && review.costByModel.isEmpty())
        return empty(ReviewPage::tr("No cost was recorded for this session."));
    const QString total = esc(ReviewPage::tr("Total"));
    QStringList out;
    out << QStringLiteral("<div class=\"cols\"><div><h3>%1</h3><table class=\"cost\"><tbody>").arg(esc(ReviewPage::tr("By model")));
    for (auto it = review.costByModel.cbegin(); it != review.costByModel.cend(); ++it)
        out << QStringLiteral("<tr><td>%1</td><td class=\"num\">%2</td></tr>").arg(esc(it.key()), money(it.value()));
    out << QStringLiteral("</tbody><tfoot><tr><td>%1</td><td class=\"num\"><b>%2</b></td></tr></tfoot></table>")
               .arg(total, money(review.totalCost.value_or(0)));
    if (review.demo)
        out << QStringLiteral("<p class=\"note-inline\">%1</p>").arg(esc(ReviewPage::tr("A sample interview costs nothing.")));
    out << QStringLiteral("</div><div><h3>%1</h3><table class=\"cost\"><thead><tr><th>#</th><th class=\"num\">%2</th>"
                          "<th class=\"num\">%3</th><th class=\"num\">%4</th></tr></thead><tbody>")
               .arg(esc(ReviewPage::tr("By question")), esc(ReviewPage::tr("Answer")), esc(ReviewPage::tr("Transcription")), total);
    for (int i = 0; i < review.cards.size(); ++i) {
        const SessionReview::Card &card = review.cards.at(i);
        if (!card.hasCost)
            continue;
        out << QStringLiteral("<tr><td>%1</td><td class=\"num\">%2</td><td class=\"num\">%3</td><td class=\"num\">%4</td></tr>")
                   .arg(i + 1).arg(money(card.responseCost), money(card.transcriptionCost), money(card.responseCost + card.transcriptionCost));
    }
    out << QStringLiteral("</tbody></table></div></div>");
    return out.join(QLatin1Char('\n'));
}

QString questionsSection(const SessionReview &review)
{
    if (review.cards.isEmpty())
        return empty(ReviewPage::tr("No questions were heard in this session."));
    const auto tag = [](const QString &cls, const QString &text) {
        return QStringLiteral("<span class=\"%1\">%2</span>").arg(cls, esc(text));
    };
    QStringList out;
    for (int i = 0; i < review.cards.size(); ++i) {
        const SessionReview::Card &card = review.cards.at(i);
        QStringList tags;
        if (!card.followUps.isEmpty())
            tags << tag(QStringLiteral("tag"), ReviewPage::tr("follow-up merged"));
        if (card.fromScreen)
            tags << tag(QStringLiteral("tag"), ReviewPage::tr("from the screen"));
        if (card.failed)
            tags << tag(QStringLiteral("tag warn"), ReviewPage::tr("no answer"));
        out << QStringLiteral("<details><summary><span class=\"num-badge\">%1</span><span class=\"at\">%2</span><span class=\"qtext\">%3</span>%4</summary>")
                   .arg(i + 1)
                   .arg(card.shownAt >= 0 ? ReviewTimeline::clock(card.shownAt) : QString(), esc(card.question), tags.join(QString()));
        out << QStringLiteral("<div class=\"qa\">");
        if (!card.followUps.isEmpty()) {
            QStringList parts;
            for (const QString &part : card.followUps)
                parts << ReviewPage::tr("“%1”").arg(part);
            out << QStringLiteral("<div class=\"follow\">%1</div>")
                       .arg(esc(ReviewPage::tr("Follow-up: %1").arg(parts.join(QStringLiteral(", ")))));
        }
        out << QStringLiteral("<div class=\"who draft\">%1</div>%2")
                   .arg(esc(ReviewPage::tr("Drafted answer")),
                        card.draft.isEmpty() ? QStringLiteral("<p class=\"empty\">—</p>") : paragraphs(card.draft));
        double spoke = 0;   // the answer timer's total on this card
        for (const SessionReview::Answer &answer : review.answers)
            spoke += answer.pair == card.pair && !card.pair.isEmpty() ? answer.span.seconds() : 0;
        const QString yourAnswer = esc(spoke > 0 ? ReviewPage::tr("Your answer · %1").arg(ReviewTimeline::clock(spoke))
                                                 : ReviewPage::tr("Your answer"));
        if (!card.yourAnswer.isEmpty())
            out << QStringLiteral("<div class=\"who you\">%1</div>%2").arg(yourAnswer, paragraphs(card.yourAnswer));
        else if (spoke > 0)
            out << QStringLiteral("<div class=\"who you\">%1</div>%2").arg(yourAnswer, empty(ReviewPage::tr("Not transcribed.")));
        out << QStringLiteral("</div></details>");
    }
    return out.join(QLatin1Char('\n'));
}

} // namespace

QString ReviewPage::fill(const QString &page, const QHash<QString, QString> &values)
{
    static const QRegularExpression placeholder(QStringLiteral("\\{\\{([A-Z_]+)\\}\\}"));
    QString out;
    out.reserve(page.size() * 2);
    qsizetype from = 0;
    for (QRegularExpressionMatchIterator it = placeholder.globalMatch(page); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        out += QStringView(page).mid(from, match.capturedStart() - from);
        out += values.value(match.captured(1));
        from = match.capturedEnd();
    }
    out += QStringView(page).mid(from);
    return out;
}

QString ReviewPage::html(const SessionReview &review, ReviewFigures::Band band)
{
    QFile file(QStringLiteral(":/review/ReviewPage.html"));
    if (!file.open(QIODevice::ReadOnly))
        return {};   // compiled in: cannot happen in a complete build
    const QString page = QString::fromUtf8(file.readAll());
    const ReviewFigures figures = ReviewFigures::compute(review, band);

    QStringList notes;
    for (const QString &note : review.notes)
        notes << QStringLiteral("<li>%1</li>").arg(esc(note));
    QStringList subtitle{esc(when(review.stamp))};
    if (!review.model.isEmpty())
        subtitle << esc(review.model);
    if (review.demo)
        subtitle << esc(tr("sample interview"));

    const QHash<QString, QString> values{
        {QStringLiteral("TITLE"), esc(tr("Interview review — %1").arg(when(review.stamp)))},
        {QStringLiteral("SUBTITLE"), subtitle.join(QStringLiteral(" · "))},
        {QStringLiteral("TILES"), tiles(review, figures)},
        {QStringLiteral("NOTES"), notes.isEmpty() ? QString() : QStringLiteral("<ul class=\"notes\">%1</ul>").arg(notes.join(QString()))},
        {QStringLiteral("TIMELINE"), ReviewTimeline::timeline(review)},
        {QStringLiteral("ANSWERS"), answersSection(review, figures)},
        {QStringLiteral("SPEED"), speedSection(review, figures)},
        {QStringLiteral("COST"), costSection(review)},
        {QStringLiteral("QUESTIONS"), questionsSection(review)},
        {QStringLiteral("SOURCE"), esc(QFileInfo(review.eventsPath.isEmpty() ? review.transcriptPath : review.eventsPath).fileName())},
    };
    return fill(page, values);
}

ReviewPage::Written ReviewPage::write(const QString &eventsOrTranscriptPath, ReviewFigures::Band band, bool readRecording)
{
    Written written;
    const SessionReview::Loaded loaded = SessionReview::load(eventsOrTranscriptPath, readRecording);
    if (!loaded.review) {
        written.error = loaded.error;
        written.unreadable = true;
        return written;
    }
    written.path = SessionReview::pagePathFor(eventsOrTranscriptPath);
    QSaveFile file(written.path);
    const QByteArray bytes = html(*loaded.review, band).toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        written.error = QStringLiteral("%1: %2").arg(written.path, file.errorString());
        qCWarning(lcReview, "[Ketterbloom] could not write %s", qUtf8Printable(written.error));
    }
    return written;
}
