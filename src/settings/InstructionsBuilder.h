#pragma once

#include "settings/AnswerStyle.h"
#include "settings/Interviewer.h"

#include <QList>
#include <QString>

// Assembles the model's instructions: the user's system prompt, then the role, the interview
// panel and the user's documents when present, always the note on earlier questions, and
// last the answer style's sentences when it is not at its defaults.
// A pure function of its inputs; nothing is trimmed except the interviewers' labels.
class InstructionsBuilder
{
public:
    struct Inputs
    {
        QString systemPrompt;
        QString companyName;
        QString roleTitle;
        QString jobDescription;
        QList<Interviewer> interviewers;
        QString contextText;
        AnswerStyle style;
    };

    static QString build(const Inputs &inputs);
    // The default of the systemPrompt setting (501 characters, no trailing newline).
    static QString defaultSystemPrompt();
};
