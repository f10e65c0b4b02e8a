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
    return value ? QString::number(*value, 'f', 1) + QStringLiteral(" s") : QStringLiteral("—");
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
        .arg(value, label, detail.isEmpty() ? QString() : QStringLiteral("<div class=\"detail\">") + detail + QStringLiteral("</div>"));
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

QString tiles(const SessionReview &review, const ReviewFigures &f)
{
    QStringList out;
    out << tile(ReviewTimeline::clock(review.length), QStringLiteral("Length"));
    out << tile(QString::number(review.cards.size()), QStringLiteral("Questions"));
    if (f.yourShare)
        out << tile(QString::number(std::lround(*f.yourShare * 100)) + QStringLiteral("%"), QStringLiteral("Your talk time"),
                    QStringLiteral("%1 you · %2 interviewer").arg(ReviewTimeline::clock(f.yourSeconds), ReviewTimeline::clock(f.interviewerSeconds)));
    else if (!review.answers.isEmpty())
        out << tile(ReviewTimeline::clock(f.yourSeconds), QStringLiteral("You spoke"));
    if (!review.answers.isEmpty())
        out << tile(QStringLiteral("%1 of %2").arg(f.answersInBand).arg(review.answers.size()), QStringLiteral("Answers on target"),
                    QStringLiteral("%1–%2 s").arg(f.band.minSeconds).arg(f.band.maxSeconds));
    if (f.medianToText)
        out << tile(seconds(f.medianToText), QStringLiteral("Median time to help"));
    if (review.totalCost)
        out << tile(money(*review.totalCost), QStringLiteral("Cost"), review.demo ? QStringLiteral("sample interview") : QString());
    return out.join(QLatin1Char('\n'));
}

QString answersSection(const SessionReview &review, const ReviewFigures &f)
{
    if (review.answers.isEmpty())
        return QStringLiteral("<p class=\"empty\">No answers of yours were timed in this session.</p>");
    QStringList out;
    out << ReviewTimeline::answerBars(review, f);
    out << QStringLiteral("<ul class=\"facts\">");
    out << QStringLiteral("<li><span class=\"swatch band\"></span>Target %2–%3 s: <span class=\"swatch ok\"></span>%1 within, "
                          "<span class=\"swatch short\"></span>%4 shorter, <span class=\"swatch long\"></span>%5 longer</li>")
               .arg(f.answersInBand).arg(f.band.minSeconds).arg(f.band.maxSeconds).arg(f.answersShort).arg(f.answersLong);
    const auto which = [&](int index) {
        const SessionReview::Answer &a = review.answers.at(index);
        return QStringLiteral("answer %1, %2 (at %3)").arg(index + 1).arg(ReviewTimeline::clock(a.span.seconds()), ReviewTimeline::clock(a.span.start));
    };
    if (f.longest)
        out << QStringLiteral("<li>Longest: ") + which(*f.longest) + QStringLiteral("</li>");
    if (f.shortest && review.answers.size() > 1)
        out << QStringLiteral("<li>Shortest: ") + which(*f.shortest) + QStringLiteral("</li>");
    if (review.hasInterviewerSpeech) {
        out << (f.startedOverInterviewer == 0 ? QStringLiteral("<li>You never started while the interviewer was still speaking.</li>")
                                              : QStringLiteral("<li>You started speaking while the interviewer still spoke %1 time%2.</li>")
                                                    .arg(f.startedOverInterviewer).arg(f.startedOverInterviewer == 1 ? QString() : QStringLiteral("s")));
    }
    out << QStringLiteral("</ul>");
    if (f.yourShare) {
        out << QStringLiteral("<h3>Talk time</h3>") << ReviewTimeline::shareBar(f);
        out << QStringLiteral("<p class=\"legend\"><span class=\"swatch you\"></span>You %1 (%2%) &nbsp; "
                              "<span class=\"swatch them\"></span>Interviewer %3 (%4%)</p>")
                   .arg(ReviewTimeline::clock(f.yourSeconds)).arg(std::lround(*f.yourShare * 100))
                   .arg(ReviewTimeline::clock(f.interviewerSeconds)).arg(100 - std::lround(*f.yourShare * 100));
    }
    return out.join(QLatin1Char('\n'));
}

QString speedSection(const SessionReview &review, const ReviewFigures &f)
{
    if (f.speeds.isEmpty())
        return QStringLiteral("<p class=\"empty\">No answer arrived in this session.</p>");
    double slowest = 1;
    for (const ReviewFigures::Speed &s : f.speeds)
        slowest = std::max(slowest, s.total());
    const bool fromQuestion = f.medianQuestionToCard.has_value();
    QStringList out;
    out << QStringLiteral("<table class=\"speed\"><thead><tr><th>#</th><th>Question</th><th class=\"num\">Question end → card</th>"
                          "<th class=\"num\">Card → first words</th><th class=\"num\">%1</th><th class=\"meter-col\"></th></tr></thead><tbody>")
               .arg(fromQuestion ? QStringLiteral("Question end → first words") : QStringLiteral("Total"));
    for (const ReviewFigures::Speed &s : f.speeds) {
        const SessionReview::Card &card = review.cards.at(s.card);
        // An answer that began before the question's text was complete: its card came after.
        const QString cardToText = s.cardToText < 0 ? QStringLiteral("before the card") : seconds(s.cardToText);
        out << QStringLiteral("<tr><td>%1</td><td class=\"q\">%2</td><td class=\"num\">%3</td><td class=\"num\">%4</td>"
                              "<td class=\"num\"><b>%5</b></td><td class=\"meter-col\"><span class=\"meter\" style=\"width:%6%\"></span></td></tr>")
                   .arg(s.card + 1).arg(esc(shortText(card.question)), seconds(s.questionToCard), cardToText, seconds(s.total()))
                   .arg(QString::number(std::max(s.total(), 0.0) / slowest * 100, 'f', 0));
    }
    out << QStringLiteral("</tbody><tfoot><tr><td></td><td>Median</td><td class=\"num\">%1</td><td></td><td class=\"num\"><b>%2</b></td><td></td></tr></tfoot></table>")
               .arg(seconds(f.medianQuestionToCard), seconds(f.medianToText));
    if (!fromQuestion)
        out << QStringLiteral("<p class=\"note-inline\">When the interviewer stopped speaking is not in this log: times start at the card.</p>");
    return out.join(QLatin1Char('\n'));
}

QString costSection(const SessionReview &review)
{
    if (!review.totalCost && review.costByModel.isEmpty())
        return QStringLiteral("<p class=\"empty\">No cost was recorded for this session.</p>");
    QStringList out;
    out << QStringLiteral("<div class=\"cols\"><div><h3>By model</h3><table class=\"cost\"><tbody>");
    for (auto it = review.costByModel.cbegin(); it != review.costByModel.cend(); ++it)
        out << QStringLiteral("<tr><td>%1</td><td class=\"num\">%2</td></tr>").arg(esc(it.key()), money(it.value()));
    out << QStringLiteral("</tbody><tfoot><tr><td>Total</td><td class=\"num\"><b>%1</b></td></tr></tfoot></table>")
               .arg(money(review.totalCost.value_or(0)));
    if (review.demo)
        out << QStringLiteral("<p class=\"note-inline\">A sample interview costs nothing.</p>");
    out << QStringLiteral("</div><div><h3>By question</h3><table class=\"cost\"><thead><tr><th>#</th><th class=\"num\">Answer</th>"
                          "<th class=\"num\">Transcription</th><th class=\"num\">Total</th></tr></thead><tbody>");
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
        return QStringLiteral("<p class=\"empty\">No questions were heard in this session.</p>");
    QStringList out;
    for (int i = 0; i < review.cards.size(); ++i) {
        const SessionReview::Card &card = review.cards.at(i);
        QStringList tags;
        if (!card.followUps.isEmpty())
            tags << QStringLiteral("<span class=\"tag\">follow-up merged</span>");
        if (card.fromScreen)
            tags << QStringLiteral("<span class=\"tag\">from the screen</span>");
        if (card.failed)
            tags << QStringLiteral("<span class=\"tag warn\">no answer</span>");
        out << QStringLiteral("<details><summary><span class=\"num-badge\">%1</span><span class=\"at\">%2</span><span class=\"qtext\">%3</span>%4</summary>")
                   .arg(i + 1)
                   .arg(card.shownAt >= 0 ? ReviewTimeline::clock(card.shownAt) : QString(), esc(card.question), tags.join(QString()));
        out << QStringLiteral("<div class=\"qa\">");
        if (!card.followUps.isEmpty()) {
            out << QStringLiteral("<div class=\"follow\">Follow-up: ");
            QStringList parts;
            for (const QString &part : card.followUps)
                parts << QStringLiteral("“") + esc(part) + QStringLiteral("”");
            out << parts.join(QStringLiteral(", ")) + QStringLiteral("</div>");
        }
        out << QStringLiteral("<div class=\"who draft\">Drafted answer</div>")
                   + (card.draft.isEmpty() ? QStringLiteral("<p class=\"empty\">—</p>") : paragraphs(card.draft));
        double spoke = 0;   // the answer timer's total on this card
        for (const SessionReview::Answer &answer : review.answers)
            spoke += answer.pair == card.pair && !card.pair.isEmpty() ? answer.span.seconds() : 0;
        const QString length = spoke > 0 ? QStringLiteral(" · ") + ReviewTimeline::clock(spoke) : QString();
        if (!card.yourAnswer.isEmpty())
            out << QStringLiteral("<div class=\"who you\">Your answer%1</div>").arg(length) + paragraphs(card.yourAnswer);
        else if (spoke > 0)
            out << QStringLiteral("<div class=\"who you\">Your answer%1</div><p class=\"empty\">Not transcribed.</p>").arg(length);
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
        notes << QStringLiteral("<li>") + esc(note) + QStringLiteral("</li>");
    QStringList subtitle{esc(when(review.stamp))};
    if (!review.model.isEmpty())
        subtitle << esc(review.model);
    if (review.demo)
        subtitle << QStringLiteral("sample interview");

    const QHash<QString, QString> values{
        {QStringLiteral("TITLE"), QStringLiteral("Interview review — ") + esc(when(review.stamp))},
        {QStringLiteral("SUBTITLE"), subtitle.join(QStringLiteral(" · "))},
        {QStringLiteral("TILES"), tiles(review, figures)},
        {QStringLiteral("NOTES"), notes.isEmpty() ? QString() : QStringLiteral("<ul class=\"notes\">") + notes.join(QString()) + QStringLiteral("</ul>")},
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
