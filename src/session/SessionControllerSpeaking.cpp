// The user's side: speaking detection from the microphone level, the answer clock, and the
// transcribed segments that fill the current card's "My answer".

#include "session/SessionController.h"

#include "session/MicTranscription.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

void SessionController::trackSpeaking(float micLevel)
{
    if (!m_isSessionActive) {
        return;
    }
    const AnswerClock::Heard heard = m_answerClock.hear(micLevel);
    if (heard.answerStarted) {
        appendEvent(QStringLiteral("you_started"),
                    {{QStringLiteral("pair"), m_pairs.isEmpty() ? QString() : m_pairs.last().id}});
    }
    switch (heard.voice) {
    case AnswerClock::Voice::started:
        beginMyAnswerSegment();
        break;
    case AnswerClock::Voice::goesOn:
        if (m_settings.transcribeMyAnswers() && !m_micTranscriber.isSegmentRunning()) {
            // A segment that ended on its own is reopened while the user keeps talking.
            beginMyAnswerSegment();
        }
        break;
    case AnswerClock::Voice::ended:
        if (m_micTranscriber.isSegmentRunning()) {
            m_micTranscriber.end();
        }
        break;
    case AnswerClock::Voice::unchanged:
        break;
    }
}

void SessionController::beginMyAnswerSegment()
{
    if (!m_settings.transcribeMyAnswers()) {
        return;
    }
    if (m_pairs.isEmpty()) {
        QAPair placeholder = QAPair::make(QString(), std::nullopt, m_clock.now(), m_clock.wallNow());
        placeholder.isComplete = true;
        appendPair(placeholder);
    }
    const int index = int(m_pairs.size()) - 1;
    QAPair &pair = m_pairs[index];
    m_speakingPairID = pair.id;
    pair.myAnswerInProgress = true;
    m_committedAnswers.insert(pair.id, pair.myAnswer);
    emit pairChanged(index);
    m_micTranscriber.begin();
}

void SessionController::updateMyAnswer(const QString &text, bool final)
{
    if (!m_speakingPairID) {
        return;
    }
    const int index = indexOfPair(*m_speakingPairID);
    if (index < 0) {
        return;
    }
    const QString committed = m_committedAnswers.value(*m_speakingPairID);
    const QString combined = committed.isEmpty() ? text : committed + QLatin1Char(' ') + text;
    QAPair &pair = m_pairs[index];
    pair.myAnswer = combined;
    if (final) {
        m_committedAnswers.insert(*m_speakingPairID, combined);
        pair.myAnswerInProgress = m_answerClock.isAnswering();
    }
    emit pairChanged(index);
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
        const QString pairID = m_speakingPairID.value_or(QString());
        const QString text = m_committedAnswers.value(pairID);
        appendEvent(QStringLiteral("you_stopped"),
                    {{QStringLiteral("pair"), pairID},
                     {QStringLiteral("seconds"), CostModel::rounded(*seconds, 1)},
                     {QStringLiteral("words"), qint64(TextRules::wordCount(text))},
                     {QStringLiteral("text"), text}});
    }
    if (m_micTranscriber.isSegmentRunning()) {
        m_micTranscriber.end();
    }
    if (m_speakingPairID) {
        const int index = indexOfPair(*m_speakingPairID);
        if (index >= 0 && m_pairs.at(index).myAnswerInProgress) {
            m_pairs[index].myAnswerInProgress = false;
            emit pairChanged(index);
        }
    }
    m_answerClock.end();
}
