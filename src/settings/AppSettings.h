#pragma once

#include "settings/AnswerStyle.h"
#include "settings/Interviewer.h"
#include "settings/SecretStore.h"

#include <QList>
#include <QObject>
#include <QSettings>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

// Every user preference of the program. Loaded from the per-user settings store when created
// and written back on every change; there is no save step. The API key is the exception: it
// lives in the key file kept by SecretStore.
//
// The application creates one instance on the GUI thread and hands it to whoever needs it.
// Views bind to the properties and their change signals; the session controller reads
// instructions() at Start and listens to instructionsChanged() to push new instructions into a
// running session. Change signals are emitted only when a value actually changes; every set
// call is written through to the store.
class AppSettings : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString apiKey READ apiKey WRITE setApiKey NOTIFY apiKeyChanged)
    Q_PROPERTY(bool hasCompletedOnboarding READ hasCompletedOnboarding WRITE setHasCompletedOnboarding NOTIFY hasCompletedOnboardingChanged)
    Q_PROPERTY(QString model READ model WRITE setModel NOTIFY modelChanged)
    Q_PROPERTY(QString transcribeModel READ transcribeModel WRITE setTranscribeModel NOTIFY transcribeModelChanged)
    Q_PROPERTY(QString deviceUID READ deviceUID WRITE setDeviceUID NOTIFY deviceUIDChanged)
    Q_PROPERTY(int micChannel READ micChannel WRITE setMicChannel NOTIFY micChannelChanged)
    Q_PROPERTY(int meetingChannel READ meetingChannel WRITE setMeetingChannel NOTIFY meetingChannelChanged)
    Q_PROPERTY(bool saveAudio READ saveAudio WRITE setSaveAudio NOTIFY saveAudioChanged)
    Q_PROPERTY(bool alwaysOnTop READ alwaysOnTop WRITE setAlwaysOnTop NOTIFY alwaysOnTopChanged)
    Q_PROPERTY(double vadThreshold READ vadThreshold WRITE setVadThreshold NOTIFY vadThresholdChanged)
    Q_PROPERTY(int prefixPaddingMs READ prefixPaddingMs WRITE setPrefixPaddingMs NOTIFY prefixPaddingMsChanged)
    Q_PROPERTY(int silenceDurationMs READ silenceDurationMs WRITE setSilenceDurationMs NOTIFY silenceDurationMsChanged)
    Q_PROPERTY(QString systemPrompt READ systemPrompt WRITE setSystemPrompt NOTIFY systemPromptChanged)
    Q_PROPERTY(QString contextText READ contextText WRITE setContextText NOTIFY contextTextChanged)
    Q_PROPERTY(QStringList contextFileNames READ contextFileNames WRITE setContextFileNames NOTIFY contextFileNamesChanged)
    Q_PROPERTY(int reconnectMinutes READ reconnectMinutes WRITE setReconnectMinutes NOTIFY reconnectMinutesChanged)
    Q_PROPERTY(Appearance appearance READ appearance WRITE setAppearance NOTIFY appearanceChanged)
    Q_PROPERTY(double followUpWindow READ followUpWindow WRITE setFollowUpWindow NOTIFY followUpWindowChanged)
    Q_PROPERTY(bool transcribeMyAnswers READ transcribeMyAnswers WRITE setTranscribeMyAnswers NOTIFY transcribeMyAnswersChanged)
    Q_PROPERTY(bool transcribeAnswersWithService READ transcribeAnswersWithService WRITE setTranscribeAnswersWithService NOTIFY transcribeAnswersWithServiceChanged)
    Q_PROPERTY(MeetingSource meetingSource READ meetingSource WRITE setMeetingSource NOTIFY meetingSourceChanged)
    Q_PROPERTY(QString tappedBundleID READ tappedBundleID WRITE setTappedBundleID NOTIFY tappedBundleIDChanged)
    Q_PROPERTY(QString recordingFile READ recordingFile WRITE setRecordingFile NOTIFY recordingFileChanged)
    Q_PROPERTY(bool stopAtRecordingEnd READ stopAtRecordingEnd WRITE setStopAtRecordingEnd NOTIFY stopAtRecordingEndChanged)
    Q_PROPERTY(bool playRecordingAloud READ playRecordingAloud WRITE setPlayRecordingAloud NOTIFY playRecordingAloudChanged)
    Q_PROPERTY(StreamSource streamSource READ streamSource WRITE setStreamSource NOTIFY streamSourceChanged)
    Q_PROPERTY(double fontSize READ fontSize WRITE setFontSize NOTIFY fontSizeChanged)
    Q_PROPERTY(QString fontFamily READ fontFamily WRITE setFontFamily NOTIFY fontFamilyChanged)
    Q_PROPERTY(QList<Interviewer> interviewers READ interviewers WRITE setInterviewers NOTIFY interviewersChanged)
    Q_PROPERTY(QString companyName READ companyName WRITE setCompanyName NOTIFY companyNameChanged)
    Q_PROPERTY(QString roleTitle READ roleTitle WRITE setRoleTitle NOTIFY roleTitleChanged)
    Q_PROPERTY(QString jobDescription READ jobDescription WRITE setJobDescription NOTIFY jobDescriptionChanged)
    Q_PROPERTY(AnswerStyle::Length answerLength READ answerLength WRITE setAnswerLength NOTIFY answerLengthChanged)
    Q_PROPERTY(AnswerStyle::Structure answerStructure READ answerStructure WRITE setAnswerStructure NOTIFY answerStructureChanged)
    Q_PROPERTY(QString answerLanguage READ answerLanguage WRITE setAnswerLanguage NOTIFY answerLanguageChanged)
    Q_PROPERTY(QString transcriptionLanguage READ transcriptionLanguage WRITE setTranscriptionLanguage NOTIFY transcriptionLanguageChanged)
    Q_PROPERTY(bool screenPrivacyNoteShown READ screenPrivacyNoteShown WRITE setScreenPrivacyNoteShown NOTIFY screenPrivacyNoteShownChanged)
    Q_PROPERTY(QString instructions READ instructions NOTIFY instructionsChanged)

public:
    enum class MeetingSource { systemOutput, singleApp, audioDevice, recording };
    Q_ENUM(MeetingSource)
    enum class StreamSource { meetingOnly, micOnly, both };
    Q_ENUM(StreamSource)
    enum class Appearance { system, light, dark };
    Q_ENUM(Appearance)

    // Raw values are the case names; parsing is exact and case-sensitive.
    static QString rawValue(MeetingSource value);
    static QString rawValue(StreamSource value);
    static QString rawValue(Appearance value);
    static std::optional<MeetingSource> meetingSourceFromRaw(const QString &raw);
    static std::optional<StreamSource> streamSourceFromRaw(const QString &raw);
    static std::optional<Appearance> appearanceFromRaw(const QString &raw);

    static constexpr const char *defaultModel = "gpt-realtime-2.1";
    static constexpr const char *defaultTranscribeModel = "gpt-live-transcribe";
    static constexpr int defaultReconnectMinutes = 25;
    static constexpr const char *monospacedFontFamily = "__mono";

    // The per-user store: ~/.config/Ketterbloom.conf (honours XDG_CONFIG_HOME), native format.
    static std::unique_ptr<QSettings> openDefaultStore();

    // Uses the default store and the default key folders.
    explicit AppSettings(QObject *parent = nullptr);
    // Uses the given store (for example a QSettings on a file in a test folder) and key store.
    AppSettings(std::unique_ptr<QSettings> store, const SecretStore &secrets, QObject *parent = nullptr);
    ~AppSettings() override;

    QString apiKey() const { return m_apiKey; }
    bool hasCompletedOnboarding() const { return m_hasCompletedOnboarding; }
    QString model() const { return m_model; }
    QString transcribeModel() const { return m_transcribeModel; }
    QString deviceUID() const { return m_deviceUID; }
    int micChannel() const { return m_micChannel; }
    int meetingChannel() const { return m_meetingChannel; }
    bool saveAudio() const { return m_saveAudio; }
    bool alwaysOnTop() const { return m_alwaysOnTop; }
    double vadThreshold() const { return m_vadThreshold; }
    int prefixPaddingMs() const { return m_prefixPaddingMs; }
    int silenceDurationMs() const { return m_silenceDurationMs; }
    QString systemPrompt() const { return m_systemPrompt; }
    QString contextText() const { return m_contextText; }
    QStringList contextFileNames() const { return m_contextFileNames; }
    int reconnectMinutes() const { return m_reconnectMinutes; }
    Appearance appearance() const { return m_appearance; }
    double followUpWindow() const { return m_followUpWindow; }
    bool transcribeMyAnswers() const { return m_transcribeMyAnswers; }
    // The user's answers are transcribed by the service instead of on the device (sends the
    // microphone to the service). Off unless the user turns it on.
    bool transcribeAnswersWithService() const { return m_transcribeAnswersWithService; }
    MeetingSource meetingSource() const { return m_meetingSource; }
    QString tappedBundleID() const { return m_tappedBundleID; }
    // The sound file played as the meeting when meetingSource is recording.
    QString recordingFile() const { return m_recordingFile; }
    // At the recording's end: stop the session (true), or keep it listening to silence.
    bool stopAtRecordingEnd() const { return m_stopAtRecordingEnd; }
    // Also play that recording to the speakers.
    bool playRecordingAloud() const { return m_playRecordingAloud; }
    StreamSource streamSource() const { return m_streamSource; }
    double fontSize() const { return m_fontSize; }
    QString fontFamily() const { return m_fontFamily; }
    QList<Interviewer> interviewers() const { return m_interviewers; }
    QString companyName() const { return m_companyName; }
    QString roleTitle() const { return m_roleTitle; }
    QString jobDescription() const { return m_jobDescription; }
    // Answer style (AppSettingsAnswers.cpp). Stored under "answerLength" and "answerStructure"
    // (raw values), "answerLanguage" (a language name, "" = the question's language) and
    // "transcriptionLanguage" (an ISO-639-1 code for the meeting transcription, "" = none).
    AnswerStyle::Length answerLength() const { return m_answerLength; }
    AnswerStyle::Structure answerStructure() const { return m_answerStructure; }
    QString answerLanguage() const { return m_answerLanguage; }
    QString transcriptionLanguage() const { return m_transcriptionLanguage; }
    AnswerStyle answerStyle() const { return {m_answerLength, m_answerStructure, m_answerLanguage}; }
    // The note on what a screen question sends has been shown ("screenPrivacyNoteShown").
    bool screenPrivacyNoteShown() const { return m_screenPrivacyNoteShown; }
    // How long your answers should run, in seconds, for the session review: stored under
    // "answerTargetMinSeconds" and "answerTargetMaxSeconds"; 60 and 120 when absent, wrongly
    // typed, or not a band within answerTargetLimit (the lower below the upper).
    int answerTargetMinSeconds() const { return m_answerTargetMin; }
    int answerTargetMaxSeconds() const { return m_answerTargetMax; }
    static constexpr int answerTargetLimit = 1800;

    void setApiKey(const QString &value);
    void setHasCompletedOnboarding(bool value);
    void setModel(const QString &value);
    void setTranscribeModel(const QString &value);
    void setDeviceUID(const QString &value);
    void setMicChannel(int value);
    void setMeetingChannel(int value);
    void setSaveAudio(bool value);
    void setAlwaysOnTop(bool value);
    void setVadThreshold(double value);
    void setPrefixPaddingMs(int value);
    void setSilenceDurationMs(int value);
    void setSystemPrompt(const QString &value);
    void setContextText(const QString &value);
    void setContextFileNames(const QStringList &value);
    void setReconnectMinutes(int value);
    void setAppearance(Appearance value);
    void setFollowUpWindow(double value);
    void setTranscribeMyAnswers(bool value);
    void setTranscribeAnswersWithService(bool value);
    void setMeetingSource(MeetingSource value);
    void setRecordingFile(const QString &value);
    void setStopAtRecordingEnd(bool value);
    void setPlayRecordingAloud(bool value);
    void setTappedBundleID(const QString &value);
    void setStreamSource(StreamSource value);
    void setFontSize(double value);
    void setFontFamily(const QString &value);
    void setInterviewers(const QList<Interviewer> &value);
    void setCompanyName(const QString &value);
    void setRoleTitle(const QString &value);
    void setJobDescription(const QString &value);
    void setAnswerLength(AnswerStyle::Length value);
    void setAnswerStructure(AnswerStyle::Structure value);
    void setAnswerLanguage(const QString &value);
    void setTranscriptionLanguage(const QString &value);
    void setScreenPrivacyNoteShown(bool value);
    // Both at once, so that a band is never briefly inverted; an unusable band is refused.
    void setAnswerTarget(int minSeconds, int maxSeconds);

    // The full model instructions assembled from the current settings (rebuilt on every call).
    QString instructions() const;

    // What the context panel does with loaded context: appends the text after a blank line
    // (or sets it when there was none) and appends the names. Empty text changes nothing.
    void appendContext(const QString &text, const QStringList &names);
    // What onboarding does: replaces the context text and names. Empty text changes nothing.
    void replaceContext(const QString &text, const QStringList &names);

    // What loading had to reset or ignore, one line each for the user: a setting out of range
    // (see SettingsValidation), a key file that was not used. Empty when all was well.
    QStringList loadNotices() const { return m_loadNotices; }

    const SecretStore &secretStore() const { return m_secrets; }
    QSettings &store() const { return *m_store; }

signals:
    void apiKeyChanged(const QString &value);
    void hasCompletedOnboardingChanged(bool value);
    void modelChanged(const QString &value);
    void transcribeModelChanged(const QString &value);
    void deviceUIDChanged(const QString &value);
    void micChannelChanged(int value);
    void meetingChannelChanged(int value);
    void saveAudioChanged(bool value);
    void alwaysOnTopChanged(bool value);
    void vadThresholdChanged(double value);
    void prefixPaddingMsChanged(int value);
    void silenceDurationMsChanged(int value);
    void systemPromptChanged(const QString &value);
    void contextTextChanged(const QString &value);
    void contextFileNamesChanged(const QStringList &value);
    void reconnectMinutesChanged(int value);
    void appearanceChanged(Appearance value);
    void followUpWindowChanged(double value);
    void transcribeMyAnswersChanged(bool value);
    void transcribeAnswersWithServiceChanged(bool value);
    void meetingSourceChanged(MeetingSource value);
    void tappedBundleIDChanged(const QString &value);
    void recordingFileChanged(const QString &value);
    void stopAtRecordingEndChanged(bool value);
    void playRecordingAloudChanged(bool value);
    void streamSourceChanged(StreamSource value);
    void fontSizeChanged(double value);
    void fontFamilyChanged(const QString &value);
    void interviewersChanged(const QList<Interviewer> &value);
    void companyNameChanged(const QString &value);
    void roleTitleChanged(const QString &value);
    void jobDescriptionChanged(const QString &value);
    void answerLengthChanged(AnswerStyle::Length value);
    void answerStructureChanged(AnswerStyle::Structure value);
    void answerLanguageChanged(const QString &value);
    void transcriptionLanguageChanged(const QString &value);
    void screenPrivacyNoteShownChanged(bool value);
    void answerTargetChanged(int minSeconds, int maxSeconds);
    // A value given to a setter was out of range and the setting was reset to its default
    // instead; `message` says which and why (also logged).
    void settingReset(const QString &message);
    // Emitted after any of systemPrompt, companyName, roleTitle, jobDescription, interviewers,
    // contextText, answerLength, answerStructure or answerLanguage changes.
    void instructionsChanged();

private:
    void load();
    void loadAnswerSettings();
    static bool isAnswerTarget(int minSeconds, int maxSeconds);
    void loadRecordingSettings();
    // Replaces the values that may not be sent to the service by their defaults; on load the
    // messages go to loadNotices(), on a change to settingReset().
    void validateLoaded();
    void reportReset(const QString &message);

    QStringList m_loadNotices;
    std::unique_ptr<QSettings> m_store;
    SecretStore m_secrets;
    QString m_apiKey{};
    bool m_hasCompletedOnboarding{};
    QString m_model{};
    QString m_transcribeModel{};
    QString m_deviceUID{};
    int m_micChannel{};
    int m_meetingChannel{};
    bool m_saveAudio{};
    bool m_alwaysOnTop{};
    double m_vadThreshold{};
    int m_prefixPaddingMs{};
    int m_silenceDurationMs{};
    QString m_systemPrompt{};
    QString m_contextText{};
    QStringList m_contextFileNames{};
    int m_reconnectMinutes{};
    Appearance m_appearance{};
    double m_followUpWindow{};
    bool m_transcribeMyAnswers{};
    bool m_transcribeAnswersWithService{};
    MeetingSource m_meetingSource{};
    QString m_tappedBundleID{};
    QString m_recordingFile{};
    bool m_stopAtRecordingEnd = true;
    bool m_playRecordingAloud = true;
    StreamSource m_streamSource{};
    double m_fontSize{};
    QString m_fontFamily{};
    QList<Interviewer> m_interviewers{};
    QString m_companyName{};
    QString m_roleTitle{};
    QString m_jobDescription{};
    AnswerStyle::Length m_answerLength = AnswerStyle::Length::standard;
    AnswerStyle::Structure m_answerStructure = AnswerStyle::Structure::automatic;
    QString m_answerLanguage{};
    QString m_transcriptionLanguage{};
    bool m_screenPrivacyNoteShown{};
    int m_answerTargetMin = 60;
    int m_answerTargetMax = 120;
};
