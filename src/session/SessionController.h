#pragma once

#include "session/AnswerClock.h"
#include "session/AnswerScheduler.h"
#include "session/AppNarrowing.h"
#include "session/CaptureWatch.h"
#include "session/CardBook.h"
#include "session/RecordingTranscriptionFlow.h"
#include "session/SessionClock.h"
#include "session/SessionComponents.h"
#include "session/SessionRecords.h"
#include "session/SessionStatus.h"
#include "session/SessionTurns.h"
#include "session/StartSequence.h"
#include "session/UsageMeter.h"

#include <QObject>
#include <QVariantMap>

// Owns a meeting session from Start to Stop and coordinates the classes that do the work
// (docs/architecture.md). Lives on the GUI thread, as do all its callbacks but the two
// audio forwarders.
class SessionController : public SessionStatus
{
    Q_OBJECT

public:
    using Components = SessionComponents;
    using BackgroundRunner = SessionComponents::BackgroundRunner;
    // Writes the review page from the closed events log at Stop; its URL is linked as "Review".
    using ReviewWriter = std::function<QUrl(const QString &eventsPath)>;

    explicit SessionController(const Components &components, QObject *parent = nullptr);
    ~SessionController() override;

    // Published state; the cards are not cleared by Start or Stop.
    const CardBook &cards() const { return m_cards; }
    const QList<QAPair> &pairs() const { return m_cards.cards(); }
    void setReviewWriter(ReviewWriter writer) { m_reviewWriter = std::move(writer); }
    bool isSpeaking() const { return m_answerClock.isSpeaking(); }
    bool isAnswering() const { return m_answerClock.isAnswering(); }
    double speakingElapsed() const { return m_answerClock.speakingElapsed(); }
    std::optional<double> lastAnswerDuration() const { return m_answerClock.lastAnswerDuration(); }
    const UsageMeter &usage() const { return m_usage; }
    qint64 droppedDeltas() const { return m_turns.drops.deltas; }
    std::optional<QString> costSummary() const;
    QString transcriptForExport() const;
    void setDemo(bool demo);

    // Operations.
    void start();
    void stop();
    void applyInstructionsLive();
    void revealRecording();
    void transcribeRecording() { m_recordingFlow.pickAndTranscribe(); }
    void cancelRecordingTranscription() { m_recordingFlow.cancel(); }
    bool askAboutScreen(const QByteArray &jpeg, const QByteArray &thumbnail);
    void screenQuestionFailed(const QString &message);

    static QString sessionFolder();
    static constexpr qsizetype maxAnswerLength = 32000;   // UTF-16 code units kept on one card
    static QString apiKeyMissingBanner();

signals:
    void startFailed();   // a press of Start ended without a session (the banner says why)
    void isSpeakingChanged();
    void isAnsweringChanged();
    void speakingElapsedChanged();
    void lastAnswerDurationChanged();

private:
    // Start-up (SessionControllerStart.cpp) and Stop.
    void continueStartWithMic(bool granted);
    void warnIfContextThin();
    void audioStartFinished(quint64 generation, const std::optional<QString> &error);
    void finishStarting();
    QString userDocumentsText() const;
    void abandonStart(const QString &banner);
    void stopSession(const std::optional<QString> &keptBanner);
    // Component events, installed as callbacks in the constructor.
    void speechStarted(const QString &itemID);
    void speechStopped(const QString &itemID);
    void ingestTranscriptDelta(const QString &itemID, const QString &delta);
    void ingestTranscript(const QString &itemID, const QString &text);
    void transcriptFailed(const QString &itemID, const QString &message);
    void responseCreated(const QString &responseID, bool requested);
    void ingestDelta(const QString &responseID, const QString &delta);
    void responseEnded(const QString &responseID, const QString &status, const QString &reason, bool transient = false);
    void completeResponse(const QString &responseID);
    void recordUsage(const QVariantMap &usage);
    void recordTranscriptionUsage(const QString &itemID, const QVariantMap &usage);
    void connectionConfigured();
    void transcribeModelFellBack(const QString &refused, const QString &model);
    void trackSpeaking(float micLevel);
    void updateMyAnswer(const QString &text, bool final);
    void recordAnswerTranscriptionUsage(const QVariantMap &usage);
    void captureHealthChanged(const CaptureHealth &health);
    void watchMicrophoneSettings();
    // Cards (SessionControllerCards.cpp, SessionControllerAnswers.cpp, SessionControllerUntranscribed.cpp).
    void mergeFollowUp(int followUp, int into, const QString &text);
    void extendQuestion(int index, const QString &text);
    int openTurnCard(const QString &itemID);
    void questionNotHeard(int index);
    void pushHistory();
    void closeOpenCards();
    void attachResponse(int index, const QString &responseID);
    bool askFor(const QString &pairID);
    void giveUpOn(const QString &pairID);
    void dropDelta(const QString &responseID, qsizetype chars, const QString &reason);
    void noteTruncated(int index);
    void awaitLateQuestion(const QString &pairID);
    void questionNeverCame(const QString &pairID);
    void giveUpWaitingQuestions(const QString &newItemID);
    bool sendScreenQuestion(const QString &pairID);
    // Speaking, records, recordings.
    void beginMyAnswerSegment();
    void endSpeaking();
    void interviewerTookOver();
    void bannerShown(const QString &text) override;
    void startLog();
    void finishLog();
    void saveTranscript() { m_records.saveTranscript(m_cards.cards()); }
    void appendEvent(const QString &event, const QVariantMap &fields) { m_records.append(event, fields); }
    void recordFailed(RecordFaults::File file, const QString &path, const QString &error) { m_records.fail(file, path, error); }
    void showRecordFault(RecordFaults::File file);
    void showStopSummary(const std::optional<QString> &keptBanner);
    void log(const QString &message);

    Components m_parts;   // none owned
    CardBook m_cards;
    ReviewWriter m_reviewWriter;
    bool m_demo = false;
    SessionRecords m_records;
    AnswerClock m_answerClock;
    AnswerScheduler m_scheduler;
    UsageMeter m_usage;
    SessionTurns m_turns;
    StartSequence m_startUp;
    CaptureWatch m_captureWatch;
    AppNarrowing m_narrowing;
    SessionClock m_sessionClock;
    RecordingTranscriptionFlow m_recordingFlow;
    // Lets callbacks that may outlive this object (thread pool, permission prompts) tell.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};
