#pragma once

#include "session/QAPair.h"

#include <QString>

// What an answer card shows for its pair, decided without widgets: the question and how it
// is set, the answer (streaming or final), the progress line while an answer is still to
// come, the note under the answer, the "updated" badge, and the row of the user's own answer.
struct CardText
{
    // `sessionLive`: a session runs (answers may still come, "(recording…)" applies).
    // `myAnswerShown`: the user opened their own answer.
    static CardText of(const QAPair &pair, bool sessionLive, bool myAnswerShown);

    QString question;
    // Still being heard, or not transcribed: set in the secondary colour.
    bool questionProvisional = false;
    // Not transcribed, or heard so far without words: in italics.
    bool questionItalic = false;
    QString answer;
    bool answerStreaming = false;
    // Off for a card whose answer is not coming (finished empty, or the session stopped first).
    bool answerHeaderShown = false;
    // The progress line's text, or "" when none shows.
    QString thinking;
    QString note;
    bool updatedBadgeShown = false;
    bool myAnswerRowShown = false;
    QString myAnswerLabelText;
    QString wordCountText;
    bool myAnswerTextShown = false;
};
