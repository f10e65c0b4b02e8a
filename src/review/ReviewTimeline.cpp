#include "review/ReviewTimeline.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kWidth = 1000;
constexpr double kLabel = 92;   // the lanes' names
constexpr double kPlot = kWidth - kLabel - 12;

QString n(double value)
{
    return QString::number(value, 'f', 1);
}

QString esc(const QString &text)
{
    return text.toHtmlEscaped();
}

// A pleasant step for the axis: about eight ticks over the session.
double tickStep(double length)
{
    for (double step : {15.0, 30.0, 60.0, 120.0, 300.0, 600.0, 900.0, 1800.0, 3600.0}) {
        if (length / step <= 10)
            return step;
    }
    return 7200.0;
}

} // namespace

QString ReviewTimeline::clock(double seconds)
{
    const auto total = static_cast<qint64>(std::llround(std::max(0.0, seconds)));
    if (total >= 3600)
        return QString::asprintf("%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    return QString::asprintf("%lld:%02lld", total / 60, total % 60);
}

QString ReviewTimeline::timeline(const SessionReview &review)
{
    const double length = std::max(review.length, 1.0);
    const auto x = [length](double t) { return kLabel + std::clamp(t / length, 0.0, 1.0) * kPlot; };
    const double laneHeight = 30;
    const double top = 8;
    const QStringList lanes{tr("Interviewer"), tr("You"), tr("Questions"), tr("Answers"), tr("Events")};
    const double axis = top + lanes.size() * laneHeight + 6;
    const double height = axis + 22;
    const auto laneY = [&](int lane) { return top + lane * laneHeight; };

    QStringList svg;
    svg << QStringLiteral("<svg class=\"timeline\" viewBox=\"0 0 %1 %2\" role=\"img\" aria-label=\"%3\">")
               .arg(n(kWidth), n(height), esc(tr("Timeline of the session")));
    for (int lane = 0; lane < lanes.size(); ++lane) {
        svg << QStringLiteral("<rect class=\"lane\" x=\"%1\" y=\"%2\" width=\"%3\" height=\"%4\" rx=\"3\"/>")
                   .arg(n(kLabel), n(laneY(lane) + 3), n(kPlot), n(laneHeight - 6));
        svg << QStringLiteral("<text class=\"lane-name\" x=\"%1\" y=\"%2\">%3</text>")
                   .arg(n(kLabel - 8), n(laneY(lane) + laneHeight / 2 + 4), esc(lanes.at(lane)));
    }
    const double step = tickStep(length);
    for (double t = 0; t <= length + 0.001; t += step) {
        svg << QStringLiteral("<line class=\"tick\" x1=\"%1\" x2=\"%1\" y1=\"%2\" y2=\"%3\"/>").arg(n(x(t)), n(top), n(axis));
        svg << QStringLiteral("<text class=\"tick-label\" x=\"%1\" y=\"%2\">%3</text>").arg(n(x(t)), n(axis + 14), clock(t));
    }

    const auto span = [&](int lane, const SessionReview::Span &s, const QString &cls, const QString &title) {
        const double w = std::max(x(s.end) - x(s.start), 1.5);
        svg << QStringLiteral("<rect class=\"%1\" x=\"%2\" y=\"%3\" width=\"%4\" height=\"%5\" rx=\"2\"><title>%6</title></rect>")
                   .arg(cls, n(x(s.start)), n(laneY(lane) + 6), n(w), n(laneHeight - 12), title);
    };
    for (const SessionReview::Span &s : review.interviewer)
        span(0, s, QStringLiteral("speech-them"),
             esc(tr("Interviewer %1–%2").arg(clock(s.start), clock(s.end))));
    for (const SessionReview::Answer &a : review.answers) {
        const QString from = clock(a.span.start);
        const QString to = clock(a.span.end);
        const QString seconds = QString::number(std::lround(a.span.seconds()));
        span(1, a.span, a.startedOverInterviewer ? QStringLiteral("speech-you over") : QStringLiteral("speech-you"),
             esc(a.startedOverInterviewer ? tr("You %1–%2 (%3 s), started while the interviewer spoke").arg(from, to, seconds)
                                          : tr("You %1–%2 (%3 s)").arg(from, to, seconds)));
    }

    for (int i = 0; i < review.cards.size(); ++i) {
        const SessionReview::Card &card = review.cards.at(i);
        if (card.shownAt < 0)
            continue;
        const double cx = x(card.shownAt);
        const double cy = laneY(2) + laneHeight / 2;
        svg << QStringLiteral("<g class=\"question\"><title>%1 · %2: %3</title>"
                              "<path d=\"M%4 %5 l6 6 l-6 6 l-6 -6 z\"/></g>")
                   .arg(QString::number(i + 1), clock(card.shownAt), esc(card.question), n(cx), n(cy - 6));
        for (qsizetype f = 0; f < card.followUps.size() && f < card.followUpsAt.size(); ++f) {
            const QString title = tr("Follow-up to %1 · %2: %3")
                                      .arg(QString::number(i + 1), clock(card.followUpsAt.at(f)), card.followUps.at(f));
            svg << QStringLiteral("<g class=\"question follow-up\"><title>%1</title>"
                                  "<path d=\"M%2 %3 l5 5 l-5 5 l-5 -5 z\"/></g>")
                       .arg(esc(title), n(x(card.followUpsAt.at(f))), n(cy - 5));
        }
        if (card.firstTextAt) {
            svg << QStringLiteral("<line class=\"answer-tick\" x1=\"%1\" x2=\"%1\" y1=\"%2\" y2=\"%3\"><title>%4</title></line>")
                       .arg(n(x(*card.firstTextAt)), n(laneY(3) + 7), n(laneY(3) + laneHeight - 7),
                            esc(tr("Answer %1 began at %2").arg(QString::number(i + 1), clock(*card.firstTextAt))));
        }
    }
    for (const SessionReview::Notice &notice : review.notices) {
        const QString cls = notice.kind == SessionReview::Notice::Kind::reconnect ? QStringLiteral("notice reconnect")
                          : notice.kind == SessionReview::Notice::Kind::problem   ? QStringLiteral("notice problem")
                          : notice.kind == SessionReview::Notice::Kind::banner    ? QStringLiteral("notice banner")
                                                                                  : QStringLiteral("notice info");
        const double cy = laneY(4) + laneHeight / 2;
        const bool banner = notice.kind == SessionReview::Notice::Kind::banner;
        svg << QStringLiteral("<g class=\"%1\"><title>%2: %3</title>%6</g>")
                   .arg(cls, clock(notice.at), esc(notice.text),
                        banner ? QStringLiteral("<rect x=\"%1\" y=\"%2\" width=\"9\" height=\"9\" rx=\"2\"/>").arg(n(x(notice.at) - 4.5), n(cy - 4.5))
                               : QStringLiteral("<circle cx=\"%1\" cy=\"%2\" r=\"5\"/>").arg(n(x(notice.at)), n(cy)));
    }
    svg << QStringLiteral("</svg>");
    return svg.join(QLatin1Char('\n'));
}

QString ReviewTimeline::answerBars(const SessionReview &review, const ReviewFigures &figures)
{
    if (review.answers.isEmpty())
        return {};
    double longest = figures.band.maxSeconds * 1.25;
    for (const SessionReview::Answer &a : review.answers)
        longest = std::max(longest, a.span.seconds());
    const double left = 44;
    const double plot = kWidth - left - 16;
    // Each answer gets an equal slot; its bar is centred in it.
    const double slot = plot / review.answers.size();
    const double barWidth = std::min(slot * 0.7, 56.0);
    const double chartHeight = 170;
    const double top = 10;
    const auto y = [&](double seconds) { return top + chartHeight - seconds / longest * chartHeight; };

    QStringList svg;
    svg << QStringLiteral("<svg class=\"bars\" viewBox=\"0 0 %1 %2\" role=\"img\" aria-label=\"%3\">")
               .arg(n(kWidth), n(top + chartHeight + 24), esc(tr("Length of each of your answers")));
    svg << QStringLiteral("<rect class=\"band\" x=\"%1\" y=\"%2\" width=\"%3\" height=\"%4\"><title>%5</title></rect>")
               .arg(n(left), n(y(figures.band.maxSeconds)), n(plot), n(y(figures.band.minSeconds) - y(figures.band.maxSeconds)),
                    esc(tr("Target %1–%2 s").arg(QString::number(figures.band.minSeconds),
                                                 QString::number(figures.band.maxSeconds))));
    const double step = longest > 400 ? 120 : longest > 200 ? 60 : 30;
    for (double s = 0; s <= longest; s += step) {
        svg << QStringLiteral("<line class=\"tick\" x1=\"%1\" x2=\"%2\" y1=\"%3\" y2=\"%3\"/>").arg(n(left), n(left + plot), n(y(s)));
        svg << QStringLiteral("<text class=\"axis-label\" x=\"%1\" y=\"%2\">%3</text>").arg(n(left - 6), n(y(s) + 4), clock(s));
    }
    for (int i = 0; i < review.answers.size(); ++i) {
        const double seconds = review.answers.at(i).span.seconds();
        const QString cls = seconds < figures.band.minSeconds ? QStringLiteral("bar short")
                          : seconds > figures.band.maxSeconds ? QStringLiteral("bar long")
                                                              : QStringLiteral("bar ok");
        const double bx = left + slot * i + (slot - barWidth) / 2;
        svg << QStringLiteral("<rect class=\"%1\" x=\"%2\" y=\"%3\" width=\"%4\" height=\"%5\" rx=\"2\"><title>%6</title></rect>")
                   .arg(cls, n(bx), n(y(seconds)), n(barWidth), n(std::max(top + chartHeight - y(seconds), 1.0)),
                        esc(tr("Answer %1: %2").arg(QString::number(i + 1), clock(seconds))));
        if (review.answers.size() <= 40 && (review.answers.size() <= 20 || i % 2 == 0))
            svg << QStringLiteral("<text class=\"bar-label\" x=\"%1\" y=\"%2\">%3</text>")
                       .arg(n(bx + barWidth / 2), n(top + chartHeight + 16), QString::number(i + 1));
    }
    svg << QStringLiteral("</svg>");
    return svg.join(QLatin1Char('\n'));
}

QString ReviewTimeline::shareBar(const ReviewFigures &figures)
{
    if (!figures.yourShare)
        return {};
    const double you = *figures.yourShare * 100;
    return QStringLiteral("<svg class=\"share\" viewBox=\"0 0 1000 28\" role=\"img\" aria-label=\"%1\">"
                          "<rect class=\"speech-you\" x=\"0\" y=\"4\" width=\"%2\" height=\"20\" rx=\"3\"><title>%3</title></rect>"
                          "<rect class=\"speech-them\" x=\"%2\" y=\"4\" width=\"%4\" height=\"20\" rx=\"3\"><title>%5</title></rect>"
                          "</svg>")
        .arg(esc(tr("Talk time")), n(you * 10), esc(tr("You %1%").arg(std::lround(you))), n(1000 - you * 10),
             esc(tr("Interviewer %1%").arg(100 - std::lround(you))));
}
