#pragma once

#include "review/ReviewFigures.h"
#include "review/SessionReview.h"

#include <QCoreApplication>
#include <QString>

// The review page's figures as inline SVG, styled by the page's CSS classes (so that they
// follow its light and dark colours): the session's timeline and the answers' lengths
// against the target band. Text from the records is escaped.
class ReviewTimeline
{
    Q_DECLARE_TR_FUNCTIONS(ReviewTimeline)

public:
    static QString timeline(const SessionReview &review);
    static QString answerBars(const SessionReview &review, const ReviewFigures &figures);
    static QString shareBar(const ReviewFigures &figures);

    // "4:05", "1:02:07".
    static QString clock(double seconds);
};
