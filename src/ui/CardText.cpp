#include "ui/CardText.h"

#include <QCoreApplication>
#include <QRegularExpression>

namespace {
QString placeholderText(const QAPair &pair)
{
    return pair.wasExtended ? QCoreApplication::translate("CardText", "re-answering the full question…")
                            : QCoreApplication::translate("CardText", "thinking");
}

// "(recording…)" only while a session runs.
QString myAnswerLabel(const QAPair &pair, bool sessionLive)
{
    return pair.myAnswerInProgress && sessionLive ? QCoreApplication::translate("CardText", "My answer (recording…)")
                                                  : QCoreApplication::translate("CardText", "My answer");
}

// Runs of characters separated by white space.
int wordCount(const QString &text)
{
    static const QRegularExpression space(QStringLiteral("\\s+"));
    return int(text.split(space, Qt::SkipEmptyParts).size());
}

// "" when the own answer is open or empty, else "<n> words".
QString wordCountLabel(const QAPair &pair, bool shown)
{
    if (shown || pair.myAnswer.isEmpty())
        return {};
    const int n = wordCount(pair.myAnswer);
    if (n == 0)
        return {};
    return QCoreApplication::translate("CardText", "%1 words").arg(n);
}

// The row is left out for cards with neither an own answer nor a recording in progress.
bool showsMyAnswerRow(const QAPair &pair, bool sessionLive)
{
    return (pair.myAnswerInProgress && sessionLive) || !pair.myAnswer.isEmpty();
}

// The progress line shows while the answer is empty and still to come: the card is not
// finished and a session runs.
bool showsThinking(const QAPair &pair, bool sessionLive)
{
    // Nothing is being answered while the question is still being heard.
    return pair.answer.isEmpty() && !pair.isComplete && sessionLive && !pair.questionInProgress;
}
} // namespace

CardText CardText::of(const QAPair &pair, bool sessionLive, bool myAnswerShown)
{
    CardText text;
    text.question = pair.displayQuestion();
    text.questionProvisional = pair.questionInProgress || pair.questionFailed || pair.questionMissing;
    text.questionItalic = pair.questionFailed || pair.questionMissing || (pair.questionInProgress && pair.question.isEmpty());
    text.answer = pair.answer;
    text.answerStreaming = !pair.answer.isEmpty() && !pair.isComplete;
    const bool thinking = showsThinking(pair, sessionLive);
    text.answerHeaderShown = !pair.answer.isEmpty() || thinking;
    if (thinking)
        text.thinking = placeholderText(pair);
    text.note = pair.answerNote;
    text.updatedBadgeShown = pair.wasExtended;
    text.myAnswerRowShown = showsMyAnswerRow(pair, sessionLive);
    text.myAnswerLabelText = myAnswerLabel(pair, sessionLive);
    text.wordCountText = wordCountLabel(pair, myAnswerShown);
    text.myAnswerTextShown = text.myAnswerRowShown && myAnswerShown && !pair.myAnswer.isEmpty();
    return text;
}
