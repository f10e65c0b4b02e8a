// The user's side: speaking detection from the microphone level, the answer clock, and the
// transcribed segments that fill the current card's "My answer".

#include "session/SessionController.h"

#include "speech/MicTranscription.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

void SessionController::trackSpeaking(float micLevel)
{
    if (!isSessionActive()) {
        return;
    }
    const AnswerClock::Heard heard = m_answerClock.hear(micLevel);
    if (heard.answerStarted) {
        appendEvent(QStringLiteral("you_started"),
                    {{QStringLiteral("pair"), m_cards.isEmpty() ? QString() : m_cards.last().id}});
    }
    switch (heard.voice) {
    case AnswerClock::Voice::started:
        beginMyAnswerSegment();
        break;
    case AnswerClock::Voice::goesOn:
        if (m_parts.settings.transcribeMyAnswers() && !m_parts.micTranscriber.isSegmentRunning()) {
            // A segment that ended on its own is reopened while the user keeps talking.
            beginMyAnswerSegment();
        }
        break;
    case AnswerClock::Voice::ended:
        if (m_parts.micTranscriber.isSegmentRunning()) {
            m_parts.micTranscriber.end();
        }
        break;
    case AnswerClock::Voice::unchanged:
        break;
    }
}

void SessionController::beginMyAnswerSegment()
{
    if (!m_parts.settings.transcribeMyAnswers()) {
        return;
    }
    if (m_cards.isEmpty()) {
        QAPair placeholder = QAPair::make(QString(), std::nullopt, m_parts.clock.now(), m_parts.clock.wallNow());
        placeholder.isComplete = true;
        m_cards.append(placeholder);
    }
    const int index = int(m_cards.size()) - 1;
    QAPair &pair = m_cards.card(index);
    m_turns.speakingPairID = pair.id;
    pair.myAnswerInProgress = true;
    m_turns.committedAnswers.insert(pair.id, pair.myAnswer);
    m_cards.changed(index);
    m_parts.micTranscriber.begin();
}

void SessionController::updateMyAnswer(const QString &text, bool final)
{
    if (!m_turns.speakingPairID) {
        return;
    }
    const int index = m_cards.indexOf(*m_turns.speakingPairID);
    if (index < 0) {
        return;
    }
    const QString committed = m_turns.committedAnswers.value(*m_turns.speakingPairID);
    const QString combined = committed.isEmpty() ? text : committed + QLatin1Char(' ') + text;
    QAPair &pair = m_cards.card(index);
    pair.myAnswer = combined;
    if (final) {
        m_turns.committedAnswers.insert(*m_turns.speakingPairID, combined);
        pair.myAnswerInProgress = m_answerClock.isAnswering();
    }
    m_cards.changed(index);
}

void SessionController::interviewerTookOver()
{
    if (m_answerClock.keepAnswerDuration()) {
        endSpeaking();
    }
}

void SessionController::endSpeaking()
{
    if (const std::optional<double> seconds = m_answerClock.answerSeconds()) {
        const QString pairID = m_turns.speakingPairID.value_or(QString());
        const QString text = m_turns.committedAnswers.value(pairID);
        appendEvent(QStringLiteral("you_stopped"),
                    {{QStringLiteral("pair"), pairID},
                     {QStringLiteral("seconds"), CostModel::rounded(*seconds, 1)},
                     {QStringLiteral("words"), qint64(TextRules::wordCount(text))},
                     {QStringLiteral("text"), text}});
    }
    if (m_parts.micTranscriber.isSegmentRunning()) {
        m_parts.micTranscriber.end();
    }
    if (m_turns.speakingPairID) {
        const int index = m_cards.indexOf(*m_turns.speakingPairID);
        if (index >= 0 && m_cards.at(index).myAnswerInProgress) {
            m_cards.card(index).myAnswerInProgress = false;
            m_cards.changed(index);
        }
    }
    m_answerClock.end();
}
