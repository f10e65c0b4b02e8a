// Questions whose transcript never comes: once the card's answer is done, the question
// waits a few seconds (or until the next turn begins) and is then shown as not
// transcribed, so that the card reads right and the records and the headless output can
// go on in order. A transcript that still arrives replaces the line.

#include "session/SessionController.h"

namespace {

// How long an answered card waits for its question's transcript.
constexpr double lateQuestionSeconds = 5.0;

} // namespace

// The card's answer is done but its question is not: wait a little for the transcript.
void SessionController::awaitLateQuestion(const QString &pairID)
{
    m_turns.questionWaits[pairID] = m_parts.clock.schedule(lateQuestionSeconds, false, [this, pairID] {
        // Erasing the timer ends this closure: what it needs is copied out first.
        SessionController *self = this;
        const QString id = pairID;
        self->m_turns.questionWaits.erase(id);
        self->questionNeverCame(id);
    });
}

// Marks the card's question as not transcribed (the transcript may still replace it).
void SessionController::questionNeverCame(const QString &pairID)
{
    m_turns.questionWaits.erase(pairID);
    const int index = m_cards.indexOf(pairID);
    if (index < 0) {
        return;
    }
    QAPair &pair = m_cards.card(index);
    if (!pair.isComplete || !pair.questionInProgress || !pair.question.isEmpty()) {
        return;   // the answer still runs, or part of the question arrived
    }
    pair.questionInProgress = false;
    pair.questionMissing = true;
    m_cards.changed(index);
    appendEvent(QStringLiteral("question_missing"), {{QStringLiteral("pair"), pair.id}});
    saveTranscript();
}

// Another turn began: earlier answered cards stop waiting for their question.
void SessionController::giveUpWaitingQuestions(const QString &newItemID)
{
    QStringList waiting;
    for (const QAPair &pair : m_cards.cards()) {
        if (pair.isComplete && pair.questionInProgress && pair.itemID != newItemID) {
            waiting << pair.id;
        }
    }
    for (const QString &id : std::as_const(waiting)) {
        questionNeverCame(id);
    }
}
