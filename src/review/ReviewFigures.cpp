#include "review/ReviewFigures.h"

#include <algorithm>

std::optional<double> ReviewFigures::median(QList<double> values)
{
    if (values.isEmpty())
        return std::nullopt;
    std::sort(values.begin(), values.end());
    const qsizetype middle = values.size() / 2;
    return values.size() % 2 == 1 ? values.at(middle) : (values.at(middle - 1) + values.at(middle)) / 2.0;
}

ReviewFigures ReviewFigures::compute(const SessionReview &review, Band band)
{
    ReviewFigures figures;
    figures.band = band;
    for (int i = 0; i < review.answers.size(); ++i) {
        const SessionReview::Answer &answer = review.answers.at(i);
        const double seconds = answer.span.seconds();
        figures.yourSeconds += seconds;
        if (seconds < band.minSeconds)
            ++figures.answersShort;
        else if (seconds > band.maxSeconds)
            ++figures.answersLong;
        else
            ++figures.answersInBand;
        if (!figures.longest || seconds > review.answers.at(*figures.longest).span.seconds())
            figures.longest = i;
        if (!figures.shortest || seconds < review.answers.at(*figures.shortest).span.seconds())
            figures.shortest = i;
        if (answer.startedOverInterviewer)
            ++figures.startedOverInterviewer;
    }
    for (const SessionReview::Span &span : review.interviewer)
        figures.interviewerSeconds += span.seconds();
    if (review.hasInterviewerSpeech && !review.answers.isEmpty() && figures.yourSeconds + figures.interviewerSeconds > 0)
        figures.yourShare = figures.yourSeconds / (figures.yourSeconds + figures.interviewerSeconds);

    QList<double> totals;
    QList<double> toCard;
    for (int i = 0; i < review.cards.size(); ++i) {
        const SessionReview::Card &card = review.cards.at(i);
        if (!card.firstTextAt || card.shownAt < 0)
            continue;
        Speed speed;
        speed.card = i;
        speed.cardToText = *card.firstTextAt - card.shownAt;
        if (card.questionEndedAt) {
            speed.questionToCard = card.shownAt - *card.questionEndedAt;
            speed.questionToText = *card.firstTextAt - *card.questionEndedAt;
        }
        figures.speeds << speed;
        totals << speed.total();
        if (speed.questionToCard)
            toCard << *speed.questionToCard;
    }
    figures.medianToText = median(totals);
    figures.medianQuestionToCard = median(toCard);
    return figures;
}
