#pragma once

#include "review/SessionReview.h"

#include <QList>

#include <optional>

// The figures of the review page, computed from a session's records: how long your answers
// ran against the target band, the talk-time shares, how fast help came and what it cost.
struct ReviewFigures
{
    // How long an answer should run, in seconds (Settings ▸ Answers).
    struct Band
    {
        int minSeconds = 60;
        int maxSeconds = 120;
    };

    // One card's speed of help, in seconds.
    struct Speed
    {
        int card = 0;                         // index into SessionReview::cards
        std::optional<double> questionToCard; // the interviewer stopped → the card appeared
        std::optional<double> questionToText; // the interviewer stopped → the first answer text
        double cardToText = 0;                // the card appeared → the first answer text (the
                                              // answer may start before the question's text is done)
        // To the first text from the question's end, or from the card when the end is unknown.
        double total() const { return questionToText.value_or(cardToText); }
    };

    Band band;
    int answersShort = 0;    // under the band
    int answersInBand = 0;
    int answersLong = 0;     // over the band
    std::optional<int> longest;    // index into SessionReview::answers
    std::optional<int> shortest;
    double yourSeconds = 0;
    double interviewerSeconds = 0;
    std::optional<double> yourShare;   // 0…1 of the talk time; none without both sides timed
    int startedOverInterviewer = 0;

    QList<Speed> speeds;               // cards with an answer, in order
    std::optional<double> medianToText;      // median of Speed::total()
    std::optional<double> medianQuestionToCard;

    static ReviewFigures compute(const SessionReview &review, Band band);
    static std::optional<double> median(QList<double> values);
};
