#pragma once

#include "session/AnswerClock.h"
#include "session/AnswerScheduler.h"
#include "session/AppNarrowing.h"
#include "session/CaptureWatch.h"
#include "session/CardBook.h"
#include "session/SessionClock.h"
#include "session/SessionComponents.h"
#include "session/SessionRecords.h"
#include "session/SessionState.h"
#include "session/SessionTurns.h"
#include "session/StartSequence.h"
#include "session/UsageMeter.h"

#include <QObject>
#include <QVariantMap>

struct RecordingProgress;

// Owns a meeting session from Start to Stop and coordinates the classes that do the work
// (docs/architecture.md). Lives on the GUI thread, as do all its callbacks but the two
// audio forwarders.
class SessionController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(RealtimeStatus status READ status NOTIFY statusChanged)
    Q_PROPERTY(bool isSessionActive READ isSessionActive NOTIFY isSessionActiveChanged)
    Q_PROPERTY(bool isStarting READ isStarting NOTIFY isStartingChanged)
    Q_PROPERTY(bool isListening READ isListening NOTIFY isListeningChanged)
    Q_PROPERTY(float micLevel READ micLevel NOTIFY micLevelChanged)
    Q_PROPERTY(float meetingLevel READ meetingLevel NOTIFY meetingLevelChanged)
    Q_PROPERTY(QUrl lastRecordingURL READ lastRecordingURL NOTIFY lastRecordingURLChanged)
    Q_PROPERTY(QUrl lastTranscriptURL READ lastTranscriptURL NOTIFY lastTranscriptURLChanged)
    Q_PROPERTY(QString banner READ banner NOTIFY bannerChanged)
    Q_PROPERTY(QList<SessionBannerLink> bannerLinks READ bannerLinks NOTIFY bannerLinksChanged)
    Q_PROPERTY(bool contextPanelRequested READ contextPanelRequested WRITE setContextPanelRequested NOTIFY contextPanelRequestedChanged)
    Q_PROPERTY(bool isSpeaking READ isSpeaking NOTIFY isSpeakingChanged)
    Q_PROPERTY(bool isAnswering READ isAnswering NOTIFY isAnsweringChanged)
    Q_PROPERTY(double speakingElapsed READ speakingElapsed NOTIFY speakingElapsedChanged)
    Q_PROPERTY(double sessionElapsed READ sessionElapsed NOTIFY sessionElapsedChanged)

public:
    using BannerLink = SessionBannerLink;
    // The one action button a banner may carry (SessionControllerState.cpp).
    enum class BannerAction { openAccountSettings, openOnboarding, openContext, cancelTranscription, copyTranscript,
                              installUpdate, restartNow };
    Q_ENUM(BannerAction)
    using Components = SessionComponents;
    using BackgroundRunner = SessionComponents::BackgroundRunner;
    // Writes the review page from the closed events log at Stop; its URL is linked as "Review".
    using ReviewWriter = std::function<QUrl(const QString &eventsPath)>;

    explicit SessionController(const Components &components, QObject *parent = nullptr);
    ~SessionController() override;

    // Published state; the cards are not cleared by Start or Stop.
    const CardBook &cards() const { return m_cards; }
    const QList<QAPair> &pairs() const { return m_cards.cards(); }
    RealtimeStatus status() const { return m_state.status; }
    bool isSessionActive() const { return m_state.isSessionActive; }
    bool isStarting() const { return m_state.isStarting; }
    bool isListening() const { return m_state.isListening; }
    float micLevel() const { return m_state.micLevel; }
    float meetingLevel() const { return m_state.meetingLevel; }
    QUrl lastRecordingURL() const { return m_state.lastRecordingURL; }
    QUrl lastTranscriptURL() const { return m_state.lastTranscriptURL; }
    QString banner() const { return m_state.banner.value_or(QString()); }   // null: no banner
    std::optional<QString> bannerText() const { return m_state.banner; }
    QList<BannerLink> bannerLinks() const { return m_state.bannerLinks; }
    std::optional<BannerAction> bannerAction() const { return m_bannerAction; }
    bool contextPanelRequested() const { return m_state.contextPanelRequested; }
    void setContextPanelRequested(bool requested);
    void setReviewWriter(ReviewWriter writer) { m_reviewWriter = std::move(writer); }
    bool isSpeaking() const { return m_answerClock.isSpeaking(); }
    bool isAnswering() const { return m_answerClock.isAnswering(); }
    double speakingElapsed() const { return m_answerClock.speakingElapsed(); }
    std::optional<double> lastAnswerDuration() const { return m_answerClock.lastAnswerDuration(); }
    double sessionElapsed() const { return m_state.sessionElapsed; }
    CostModel::Usage sessionUsage() const { return m_usage.usage(); }
    CostModel::TranscriptionUsage sessionTranscriptionUsage() const { return m_usage.transcriptionUsage(); }
    double sessionCost() const { return m_usage.cost(); }
    qint64 droppedDeltas() const { return m_turns.drops.deltas; }
    std::optional<QString> costSummary() const;
    QString transcriptForExport() const;
    void setDemo(bool demo);
    bool isDemo() const { return m_state.demo; }

    // Operations.
    void start();
    void stop();
    void applyInstructionsLive();
    void revealRecording();
    void transcribeRecording();
    void cancelRecordingTranscription();
    void setBanner(const QString &text, const QList<BannerLink> &links);
    void setBanner(const QString &text, BannerAction action);
    void setBannerText(const std::optional<QString> &text);
    static BannerLink makeLink(const QString &label, const QUrl &url);
    bool askAboutScreen(const QByteArray &jpeg, const QByteArray &thumbnail);
    void screenQuestionFailed(const QString &message);

    static QString sessionFolder();
    static constexpr qsizetype maxAnswerLength = 32000;   // UTF-16 code units kept on one card
    static const QString screenQuestionText;
    static const QString apiKeyMissingBanner;
    static const QString stillStartingBanner;

signals:
    void startFailed();   // a press of Start ended without a session (the banner says why)
    void statusChanged();
    void isSessionActiveChanged();
    void isStartingChanged();
    void isListeningChanged();
    void micLevelChanged();
    void meetingLevelChanged();
    void lastRecordingURLChanged();
    void lastTranscriptURLChanged();
    void bannerChanged();
    void bannerLinksChanged();
    void bannerActionChanged();
    void contextPanelRequestedChanged();
    void isSpeakingChanged();
    void isAnsweringChanged();
    void speakingElapsedChanged();
    void lastAnswerDurationChanged();
    void sessionElapsedChanged();

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
    void startLog();
    void finishLog();
    void saveTranscript() { m_records.saveTranscript(m_cards.cards()); }
    void appendEvent(const QString &event, const QVariantMap &fields) { m_records.append(event, fields); }
    void recordFailed(RecordFaults::File file, const QString &path, const QString &error) { m_records.fail(file, path, error); }
    void showRecordFault(RecordFaults::File file);
    void showStopSummary(const std::optional<QString> &keptBanner);
    void log(const QString &message);
    void transcribeRecordingOnDevice(const QString &path);
    void transcribeRecordingWithService(const QString &path);
    void showRecordingProgress(const QString &name, const RecordingProgress &progress);
    void recordingTranscriptWritten(const QString &transcriptPath, const QString &usageNote);
    // Published-state setters (SessionControllerState.cpp).
    void setStatus(const RealtimeStatus &status);
    void setSessionActive(bool active);
    void setStarting(bool starting);
    void setListening(bool listening);
    void setLevels(float mic, float meeting);
    void setLastRecordingURL(const QUrl &url);
    void setLastTranscriptURL(const QUrl &url);
    void setBannerLinks(const QList<BannerLink> &links);
    void setBannerAction(std::optional<BannerAction> action);
    void setSessionElapsed(double seconds);

    Components m_parts;   // none owned
    CardBook m_cards;
    SessionState m_state;
    std::optional<BannerAction> m_bannerAction;
    ReviewWriter m_reviewWriter;
    SessionRecords m_records;
    AnswerClock m_answerClock;
    AnswerScheduler m_scheduler;
    UsageMeter m_usage;
    SessionTurns m_turns;
    StartSequence m_startUp;
    CaptureWatch m_captureWatch;
    AppNarrowing m_narrowing;
    SessionClock m_sessionClock;
    // Lets callbacks that may outlive this object (thread pool, permission prompts) tell.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};
