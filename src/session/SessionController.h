#pragma once

#include "audio/AudioTypes.h"
#include "realtime/RealtimeTypes.h"
#include "session/AnswerClock.h"
#include "session/AnswerScheduler.h"
#include "session/AppNarrowing.h"
#include "session/CaptureWatch.h"
#include "session/CardBook.h"
#include "session/Clock.h"
#include "session/CostModel.h"
#include "session/QAPair.h"
#include "session/RecordFaults.h"
#include "session/SessionRecords.h"
#include "session/StartSequence.h"
#include "session/UsageMeter.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>

class AppSettings;
class CaptureLink;
class FileRevealer;
class IdleInhibitor;
class MicTranscription;
class RealtimeLink;
class RecordingPicker;
class RecordingTranscription;
class RecordingTranscriptionPrompt;
struct RecordingProgress;
class TapQueries;

// A button shown beside the session banner (SessionController::BannerLink).
struct SessionBannerLink
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString label MEMBER label)
    Q_PROPERTY(QUrl url MEMBER url)
public:
    QString id;     // fresh UUID per link
    QString label;  // "Transcript", "Recording", "Folder"
    QUrl url;       // a local file or folder
    friend bool operator==(const SessionBannerLink &, const SessionBannerLink &) = default;
};

// Owns a meeting session from Start to Stop: runs the start-up checks, wires capture, the
// realtime service and the transcribers together, turns transcripts and answer text into
// cards, times the user's answers, narrows capture to one application, and writes the
// session's records. Lives on the GUI thread; every operation and every component callback
// it installs runs there, except the two audio forwarders (PCM16 and microphone buffers).
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
    // A button shown beside the banner: reveals or opens `url`.
    using BannerLink = SessionBannerLink;

    // The one action button a banner may carry. copyTranscript: the transcript file could not
    // be written; the button copies the cards' text (transcriptForExport) to the clipboard.
    // installUpdate and restartNow belong to the updater.
    enum class BannerAction { openAccountSettings, openOnboarding, openContext, cancelTranscription, copyTranscript,
                              installUpdate, restartNow };
    Q_ENUM(BannerAction)

    // Runs a job off the GUI thread. The default uses the global thread pool; tests pass
    // one that runs the job at once or keeps it until they release it.
    using BackgroundRunner = std::function<void(std::function<void()> job)>;

    // Everything the controller uses; none of it is owned, all must outlive the controller.
    struct Components
    {
        AppSettings &settings;
        RealtimeLink &client;
        CaptureLink &audio;
        TapQueries &taps;
        MicTranscription &micTranscriber;
        RecordingTranscription &recordingTranscriber;
        Clock &clock;
        IdleInhibitor &idleInhibitor;
        FileRevealer &fileRevealer;
        RecordingPicker &recordingPicker;
        BackgroundRunner runInBackground = {};
        // Asks whether a recording goes to the service, while the user has opted in to the
        // service for their answers; none (headless): recordings stay on the device.
        RecordingTranscriptionPrompt *recordingPrompt = nullptr;
    };

    // Writes a session's review page from its closed events log at Stop and gives the page,
    // linked as "Review" in the Stop banner (an empty URL: none). Unset: no page.
    using ReviewWriter = std::function<QUrl(const QString &eventsPath)>;

    // Installs the components' callbacks.
    explicit SessionController(const Components &components, QObject *parent = nullptr);
    ~SessionController() override;

    // --- Published state -------------------------------------------------------------
    // All cards, oldest first, as a list model (views bind to it). Not cleared by Start or Stop.
    const CardBook &cards() const { return m_cards; }
    const QList<QAPair> &pairs() const { return m_cards.cards(); }
    RealtimeStatus status() const { return m_status; }
    bool isSessionActive() const { return m_isSessionActive; }
    // From a press of Start until the session is active or the start has failed; Start is
    // refused meanwhile (a view disables its Start button).
    bool isStarting() const { return m_isStarting; }
    // The service hears the other side talking (between its speech start and stop).
    bool isListening() const { return m_isListening; }
    float micLevel() const { return m_micLevel; }
    float meetingLevel() const { return m_meetingLevel; }
    // Empty when none.
    QUrl lastRecordingURL() const { return m_lastRecordingURL; }
    QUrl lastTranscriptURL() const { return m_lastTranscriptURL; }
    // Null QString when no banner shows.
    QString banner() const { return m_banner.value_or(QString()); }
    std::optional<QString> bannerText() const { return m_banner; }
    QList<BannerLink> bannerLinks() const { return m_bannerLinks; }
    std::optional<BannerAction> bannerAction() const { return m_bannerAction; }
    bool contextPanelRequested() const { return m_contextPanelRequested; }
    void setContextPanelRequested(bool requested);
    void setReviewWriter(ReviewWriter writer) { m_reviewWriter = std::move(writer); }
    bool isSpeaking() const { return m_answerClock.isSpeaking(); }
    bool isAnswering() const { return m_answerClock.isAnswering(); }
    double speakingElapsed() const { return m_answerClock.speakingElapsed(); }
    // Seconds; none while an answer runs and after Stop.
    std::optional<double> lastAnswerDuration() const { return m_answerClock.lastAnswerDuration(); }
    double sessionElapsed() const { return m_sessionElapsed; }
    CostModel::Usage sessionUsage() const { return m_usage.usage(); }
    CostModel::TranscriptionUsage sessionTranscriptionUsage() const { return m_usage.transcriptionUsage(); }
    // USD of this session so far: responses at the session model's prices plus the meeting
    // transcription at its model's prices.
    double sessionCost() const { return m_usage.cost(); }
    // Answer deltas dropped this session (for a finished response or card, or beyond the
    // length cap of one answer).
    qint64 droppedDeltas() const { return m_drops.deltas; }

    // Longest answer kept on one card, in UTF-16 code units; the rest is dropped.
    static constexpr qsizetype maxAnswerLength = 32000;

    // "$0.27 this session · $0.0093/min · 15210 tokens"; none without tokens or time.
    std::optional<QString> costSummary() const;
    // "[HH:mm:ss] Q: …\nA: …" blocks joined by a blank line.
    QString transcriptForExport() const;

    // A sample interview against a local stand-in for the service: its records are named
    // "meeting_demo_…", say so in the events log, and cost nothing.
    void setDemo(bool demo)
    {
        m_demo = demo;
        m_usage.setFree(demo);
    }
    bool isDemo() const { return m_demo; }

    // --- Operations --------------------------------------------------------------------
    void start();
    void stop();
    // Pushes the current instructions into a running session, or says they apply next time.
    void applyInstructionsLive();
    // Shows the last transcript and recording in the file manager.
    void revealRecording();
    // Lets the user pick a saved recording and transcribes it on the device.
    // With "Transcribe my answers with OpenAI" on, it first asks, once for the picked file,
    // whether the recording goes to the service instead (SessionControllerRecording.cpp).
    void transcribeRecording();
    // Stops a running transcription of a recording (the banner's action while it runs).
    void cancelRecordingTranscription();
    void setBanner(const QString &text, const QList<BannerLink> &links);
    void setBanner(const QString &text, BannerAction action);
    // Sets or clears the banner text alone (links and action follow the usual rules).
    void setBannerText(const std::optional<QString> &text);

    // Makes a link with a fresh id.
    static BannerLink makeLink(const QString &label, const QUrl &url);

    // Screen questions (SessionControllerScreen.cpp). Sends a picture of the screen (JPEG)
    // to the running session and opens a "Screen question" card with `thumbnail` for its
    // answer. Without a session, or when the link cannot send pictures, nothing is sent, a
    // banner says so and the result is false.
    bool askAboutScreen(const QByteArray &jpeg, const QByteArray &thumbnail);
    // A screen question that ended before anything was sent (refused, cancelled): one line.
    void screenQuestionFailed(const QString &message);
    static const QString screenQuestionText;

    // --- Component events (installed as callbacks; public for the components' adapters) --
    void speechStarted(const QString &itemID);
    void speechStopped(const QString &itemID);
    void ingestTranscriptDelta(const QString &itemID, const QString &delta);
    void ingestTranscript(const QString &itemID, const QString &text);
    void transcriptFailed(const QString &itemID, const QString &message);
    void responseCreated(const QString &responseID, bool requested);
    void ingestDelta(const QString &responseID, const QString &delta);
    // `transient`: the service failed for a passing reason; the question is asked once more.
    void responseEnded(const QString &responseID, const QString &status, const QString &reason, bool transient = false);
    void completeResponse(const QString &responseID);
    void recordUsage(const QVariantMap &usage);
    void recordTranscriptionUsage(const QString &itemID, const QVariantMap &usage);
    void connectionConfigured();
    void transcribeModelFellBack(const QString &refused, const QString &model);
    void trackSpeaking(float micLevel);
    void updateMyAnswer(const QString &text, bool final);
    // Usage of the service that transcribes the user's answers (when the user opted in).
    void recordAnswerTranscriptionUsage(const QVariantMap &usage);

    // The folder that holds the session files.
    static QString sessionFolder();

    // User-visible texts that other parts of the product compare against.
    static const QString apiKeyMissingBanner;
    static const QString stillStartingBanner;

signals:
    // A press of Start ended without a session (the banner says why).
    void startFailed();
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
    // Start-up.
    void continueStartWithMic(bool granted);
    void warnIfContextThin();
    void audioStartFinished(quint64 generation, const std::optional<QString> &error);
    void finishStarting();
    // The job description, the user's background and the panel, for on-device recognition.
    QString userDocumentsText() const;
    // Ends a start that did not become a session: banner, client stopped, log closed.
    void abandonStart(const QString &banner);
    // Stop; `keptBanner` (a failure message) stays as the banner, with the saved files'
    // links after it.
    void stopSession(const std::optional<QString> &keptBanner);

    // Cards: the question side (SessionControllerCards.cpp).
    void mergeFollowUp(int followUp, int into, const QString &text);
    void extendQuestion(int index, const QString &text);
    int openTurnCard(const QString &itemID);
    // The turn's transcript came back empty: the card goes unless something is on it.
    void questionNotHeard(int index);
    void pushHistory();
    // Marks every unfinished card finished, noting a partial answer as cut short.
    void closeOpenCards();

    // Cards: the answer side and housekeeping (SessionControllerAnswers.cpp).
    void attachResponse(int index, const QString &responseID);
    // The scheduler's hooks: sends the request for a card (false: refused, card removed);
    // finishes a card nothing answered.
    bool askFor(const QString &pairID);
    void giveUpOn(const QString &pairID);
    void dropDelta(const QString &responseID, qsizetype chars, const QString &reason);
    // Text was dropped at the length cap: the card's note and one event.
    void noteTruncated(int index);

    // Questions whose transcript never comes (SessionControllerUntranscribed.cpp).
    static constexpr double lateQuestionSeconds = 5.0;
    // The card's answer is done but its question is not: wait a little for the transcript.
    void awaitLateQuestion(const QString &pairID);
    // Marks the card's question as not transcribed (the transcript may still replace it).
    void questionNeverCame(const QString &pairID);
    // Another turn began: earlier answered cards stop waiting for their question.
    void giveUpWaitingQuestions(const QString &newItemID);

    // Screen questions: sends the picture of the screen-question card `pairID`. A link that
    // refuses pictures removes the card, with a banner, and the result is false.
    bool sendScreenQuestion(const QString &pairID);

    // Speaking.
    void beginMyAnswerSegment();
    void endSpeaking();
    void interviewerTookOver();

    // Records.
    void startLog();
    void finishLog();
    // Rewrites the transcript now (after a card completes); tells the user once if it fails.
    void saveTranscript() { m_records.saveTranscript(m_cards.cards()); }
    void appendEvent(const QString &event, const QVariantMap &fields) { m_records.append(event, fields); }
    // A record file could not be written: logged, and the first time a banner says so.
    void recordFailed(RecordFaults::File file, const QString &path, const QString &error) { m_records.fail(file, path, error); }
    void showRecordFault(RecordFaults::File file);
    // The banner and links at Stop: complete files are linked and called saved, the others
    // named with their reason.
    void showStopSummary(const std::optional<QString> &keptBanner);
    void log(const QString &message);

    // Capture health and the microphone picked in Settings (SessionControllerAudio.cpp).
    void captureHealthChanged(const CaptureHealth &health);
    void watchMicrophoneSettings();

    // Transcribing a saved recording (SessionControllerRecording.cpp).
    void transcribeRecordingOnDevice(const QString &path);
    void transcribeRecordingWithService(const QString &path);
    void showRecordingProgress(const QString &name, const RecordingProgress &progress);
    // `usageNote`: what the service used, or empty.
    void recordingTranscriptWritten(const QString &transcriptPath, const QString &usageNote);

    // Session clock.
    void startSessionClock();
    void stopSessionClock();

    // Published-state setters (emit on change).
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

    // Published.
    CardBook m_cards;
    RealtimeStatus m_status = RealtimeStatus::idle();
    bool m_isSessionActive = false;
    bool m_demo = false;
    bool m_isStarting = false;
    bool m_isListening = false;
    float m_micLevel = 0;
    float m_meetingLevel = 0;
    QUrl m_lastRecordingURL;
    QUrl m_lastTranscriptURL;
    ReviewWriter m_reviewWriter;
    std::optional<QString> m_banner;
    QList<BannerLink> m_bannerLinks;
    bool m_contextPanelRequested = false;
    std::optional<BannerAction> m_bannerAction;
    double m_sessionElapsed = 0;

    // Private.
    std::optional<QString> m_bannerOwningLinks;
    std::optional<QString> m_speakingPairID;
    QHash<QString, QString> m_committedAnswers;
    SessionRecords m_records;
    QHash<QString, Clock::TimePoint> m_questionAt;
    QSet<QString> m_firstTokenSeen;
    AnswerClock m_answerClock;
    AnswerScheduler m_scheduler;
    UsageMeter m_usage;

    // Turns and answers.
    QHash<QString, Clock::TimePoint> m_speechStartedAt;   // input item -> when speech began
    QHash<QString, double> m_heardSeconds;            // input item -> seconds of speech heard
    std::unordered_map<QString, std::unique_ptr<ClockTimer>> m_questionWaits;   // card id -> late-question wait

    StartSequence m_startUp;
    CaptureWatch m_captureWatch;
    AppNarrowing m_narrowing;

    // Answer text dropped this session: one log line per response, totals at the end.
    struct Drops
    {
        QSet<QString> responses;
        qint64 deltas = 0;
        qint64 chars = 0;
    } m_drops;

    // The session clock, and the idle inhibition it holds.
    struct SessionClock
    {
        std::optional<Clock::TimePoint> start;
        std::unique_ptr<ClockTimer> timer;
        bool idleInhibited = false;
    } m_sessionClock;

    // Lets callbacks that may outlive this object (thread pool, permission prompts) tell.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};
