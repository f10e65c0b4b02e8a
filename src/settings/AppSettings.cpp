#include "settings/AppSettings.h"

#include "settings/InstructionsBuilder.h"
#include "settings/SettingsLogging.h"
#include "settings/SettingsValidation.h"
#include "settings/StoreReader.h"

#include <array>

namespace {

template<typename E, std::size_t N>
std::optional<E> fromRaw(const QString &raw, const std::array<std::pair<E, const char *>, N> &table)
{
    for (const auto &[value, name] : table) {
        if (raw == QLatin1String(name))
            return value;
    }
    return std::nullopt;
}

template<typename E, std::size_t N>
QString toRaw(E value, const std::array<std::pair<E, const char *>, N> &table)
{
    for (const auto &[v, name] : table) {
        if (v == value)
            return QString::fromLatin1(name);
    }
    return QString::fromLatin1(table.front().second);
}

constexpr std::array<std::pair<AppSettings::MeetingSource, const char *>, 4> meetingSources{{
    {AppSettings::MeetingSource::systemOutput, "systemOutput"},
    {AppSettings::MeetingSource::singleApp, "singleApp"},
    {AppSettings::MeetingSource::audioDevice, "audioDevice"},
    {AppSettings::MeetingSource::recording, "recording"},
}};
constexpr std::array<std::pair<AppSettings::StreamSource, const char *>, 3> streamSources{{
    {AppSettings::StreamSource::meetingOnly, "meetingOnly"},
    {AppSettings::StreamSource::micOnly, "micOnly"},
    {AppSettings::StreamSource::both, "both"},
}};
constexpr std::array<std::pair<AppSettings::Appearance, const char *>, 3> appearances{{
    {AppSettings::Appearance::system, "system"},
    {AppSettings::Appearance::light, "light"},
    {AppSettings::Appearance::dark, "dark"},
}};

// Stores the new value, writes it through (every call, changed or not) and tells whether it
// changed.
template<typename T>
bool assign(QSettings &store, T &member, const T &value, const char *key, const QVariant &stored)
{
    const bool changed = member != value;
    member = value;
    store.setValue(QLatin1String(key), stored);
    return changed;
}

} // namespace

QString AppSettings::rawValue(MeetingSource value) { return toRaw(value, meetingSources); }
QString AppSettings::rawValue(StreamSource value) { return toRaw(value, streamSources); }
QString AppSettings::rawValue(Appearance value) { return toRaw(value, appearances); }

std::optional<AppSettings::MeetingSource> AppSettings::meetingSourceFromRaw(const QString &raw)
{
    return fromRaw(raw, meetingSources);
}
std::optional<AppSettings::StreamSource> AppSettings::streamSourceFromRaw(const QString &raw)
{
    return fromRaw(raw, streamSources);
}
std::optional<AppSettings::Appearance> AppSettings::appearanceFromRaw(const QString &raw)
{
    return fromRaw(raw, appearances);
}

std::unique_ptr<QSettings> AppSettings::openDefaultStore()
{
    // Organisation "Ketterbloom" with no application name gives ~/.config/Ketterbloom.conf;
    // an empty organisation would make QSettings fall back to "Unknown Organization".
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                       QStringLiteral("Ketterbloom"));
}

AppSettings::AppSettings(QObject *parent)
    : AppSettings(openDefaultStore(), SecretStore(), parent)
{
}

AppSettings::AppSettings(std::unique_ptr<QSettings> store, const SecretStore &secrets, QObject *parent)
    : QObject(parent)
    , m_store(std::move(store))
    , m_secrets(secrets)
{
    load();
}

AppSettings::~AppSettings() = default;

void AppSettings::load()
{
    const QSettings &s = *m_store;
    const auto str = [&s](const char *key, const QString &fallback) {
        return StoreReader::string(s, QLatin1String(key)).value_or(fallback);
    };
    const auto boolean = [&s](const char *key, bool fallback) {
        return StoreReader::boolean(s, QLatin1String(key)).value_or(fallback);
    };
    const auto integer = [&s](const char *key, int fallback) {
        return StoreReader::integer(s, QLatin1String(key)).value_or(fallback);
    };
    const auto real = [&s](const char *key, double fallback) {
        return StoreReader::real(s, QLatin1String(key)).value_or(fallback);
    };
    const auto raw = [&s](const char *key) { return StoreReader::string(s, QLatin1String(key)).value_or(QString()); };

    QString keyFileProblem;
    m_apiKey = m_secrets.loadKey(&keyFileProblem);
    if (!keyFileProblem.isEmpty())
        m_loadNotices.append(keyFileProblem);
    m_hasCompletedOnboarding = boolean("hasCompletedOnboarding", false);
    m_model = str("model", QString::fromLatin1(defaultModel));
    m_transcribeModel = str("transcribeModel", QString::fromLatin1(defaultTranscribeModel));
    m_deviceUID = str("deviceUID", QString());
    m_micChannel = integer("micChannel", 0);
    m_meetingChannel = integer("meetingChannel", 1);
    m_saveAudio = boolean("saveAudio", false);
    m_alwaysOnTop = boolean("alwaysOnTop", true);
    m_vadThreshold = real("vadThreshold", SettingsValidation::defaultVadThreshold);
    m_prefixPaddingMs = integer("prefixPaddingMs", SettingsValidation::defaultPrefixPaddingMs);
    m_silenceDurationMs = integer("silenceDurationMs", SettingsValidation::defaultSilenceDurationMs);
    m_systemPrompt = str("systemPrompt", InstructionsBuilder::defaultSystemPrompt());
    m_contextText = str("contextText", QString());
    m_contextFileNames = StoreReader::stringList(s, QStringLiteral("contextFileNames")).value_or(QStringList());
    // Written on every change but deliberately not read back: each launch starts at 25.
    m_reconnectMinutes = defaultReconnectMinutes;
    m_appearance = appearanceFromRaw(raw("appearance")).value_or(Appearance::system);
    m_followUpWindow = real("followUpWindow", 8.0);
    m_transcribeMyAnswers = boolean("transcribeMyAnswers", false);
    m_transcribeAnswersWithService = boolean("transcribeAnswersWithService", false);
    m_meetingSource = meetingSourceFromRaw(raw("meetingSource")).value_or(MeetingSource::systemOutput);
    m_tappedBundleID = str("tappedBundleID", QString());
    m_streamSource = streamSourceFromRaw(raw("streamSource")).value_or(StreamSource::meetingOnly);
    m_fontSize = real("fontSize", 14.0);
    m_fontFamily = str("fontFamily", QString());
    // The panel always has exactly two slots.
    std::optional<QList<Interviewer>> panel;
    if (const auto data = StoreReader::data(s, QStringLiteral("interviewers")))
        panel = Interviewer::decodeList(*data);
    if (panel && panel->size() == 2) {
        m_interviewers = *panel;
    } else {
        if (s.contains(QStringLiteral("interviewers")))
            qCInfo(lcSettings) << "[Ketterbloom] stored interview panel unusable; starting with two blank slots";
        m_interviewers = {Interviewer(), Interviewer()};
    }
    m_companyName = str("companyName", QString());
    m_roleTitle = str("roleTitle", QString());
    m_jobDescription = str("jobDescription", QString());
    loadAnswerSettings();
    loadRecordingSettings();
    validateLoaded();
}

void AppSettings::validateLoaded()
{
    namespace V = SettingsValidation;
    const auto reset = [this](const Result<void> &check, auto &member, const auto &fallback, const char *key) {
        if (check.ok())
            return;
        qCWarning(lcSettings).noquote() << "[Ketterbloom]" << check.error();
        m_loadNotices.append(check.error());
        member = fallback;
        m_store->setValue(QLatin1String(key), fallback);
    };
    reset(V::checkVadThreshold(m_vadThreshold), m_vadThreshold, V::defaultVadThreshold, "vadThreshold");
    reset(V::checkPrefixPaddingMs(m_prefixPaddingMs), m_prefixPaddingMs, V::defaultPrefixPaddingMs, "prefixPaddingMs");
    reset(V::checkSilenceDurationMs(m_silenceDurationMs), m_silenceDurationMs, V::defaultSilenceDurationMs,
          "silenceDurationMs");
    const QString model = QString::fromLatin1(defaultModel);
    const QString transcribeModel = QString::fromLatin1(defaultTranscribeModel);
    reset(V::checkModelName(m_model, tr("realtime model"), model), m_model, model, "model");
    reset(V::checkModelName(m_transcribeModel, tr("transcription model"), transcribeModel),
          m_transcribeModel, transcribeModel, "transcribeModel");
}

void AppSettings::reportReset(const QString &message)
{
    qCWarning(lcSettings).noquote() << "[Ketterbloom]" << message;
    emit settingReset(message);
}

QString AppSettings::instructions() const
{
    return InstructionsBuilder::build({m_systemPrompt, m_companyName, m_roleTitle, m_jobDescription,
                                       m_interviewers, m_contextText, answerStyle()});
}

void AppSettings::appendContext(const QString &text, const QStringList &names)
{
    if (text.isEmpty())
        return;
    setContextText(m_contextText.isEmpty() ? text : m_contextText + QStringLiteral("\n\n") + text);
    setContextFileNames(m_contextFileNames + names);
}

void AppSettings::replaceContext(const QString &text, const QStringList &names)
{
    if (text.isEmpty())
        return;
    setContextText(text);
    setContextFileNames(names);
}

void AppSettings::setApiKey(const QString &value)
{
    // Not a setting of the store: the key file is written (or removed) on every change.
    const bool changed = m_apiKey != value;
    m_apiKey = value;
    m_secrets.save(m_apiKey);
    if (changed)
        emit apiKeyChanged(m_apiKey);
}

void AppSettings::setHasCompletedOnboarding(bool value)
{
    if (assign(*m_store, m_hasCompletedOnboarding, value, "hasCompletedOnboarding", value))
        emit hasCompletedOnboardingChanged(m_hasCompletedOnboarding);
}

void AppSettings::setModel(const QString &requested)
{
    const QString fallback = QString::fromLatin1(defaultModel);
    const auto check = SettingsValidation::checkModelName(requested, tr("realtime model"), fallback);
    const QString value = check.ok() ? requested : fallback;
    if (!check.ok())
        reportReset(check.error());
    if (assign(*m_store, m_model, value, "model", value))
        emit modelChanged(m_model);
}

void AppSettings::setTranscribeModel(const QString &requested)
{
    const QString fallback = QString::fromLatin1(defaultTranscribeModel);
    const auto check = SettingsValidation::checkModelName(requested, tr("transcription model"), fallback);
    const QString value = check.ok() ? requested : fallback;
    if (!check.ok())
        reportReset(check.error());
    if (assign(*m_store, m_transcribeModel, value, "transcribeModel", value))
        emit transcribeModelChanged(m_transcribeModel);
}

void AppSettings::setDeviceUID(const QString &value)
{
    if (assign(*m_store, m_deviceUID, value, "deviceUID", value))
        emit deviceUIDChanged(m_deviceUID);
}

void AppSettings::setMicChannel(int value)
{
    if (assign(*m_store, m_micChannel, value, "micChannel", value))
        emit micChannelChanged(m_micChannel);
}

void AppSettings::setMeetingChannel(int value)
{
    if (assign(*m_store, m_meetingChannel, value, "meetingChannel", value))
        emit meetingChannelChanged(m_meetingChannel);
}

void AppSettings::setSaveAudio(bool value)
{
    if (assign(*m_store, m_saveAudio, value, "saveAudio", value))
        emit saveAudioChanged(m_saveAudio);
}

void AppSettings::setAlwaysOnTop(bool value)
{
    if (assign(*m_store, m_alwaysOnTop, value, "alwaysOnTop", value))
        emit alwaysOnTopChanged(m_alwaysOnTop);
}

void AppSettings::setVadThreshold(double requested)
{
    const auto check = SettingsValidation::checkVadThreshold(requested);
    const double value = check.ok() ? requested : SettingsValidation::defaultVadThreshold;
    if (!check.ok())
        reportReset(check.error());
    if (assign(*m_store, m_vadThreshold, value, "vadThreshold", value))
        emit vadThresholdChanged(m_vadThreshold);
}

void AppSettings::setPrefixPaddingMs(int requested)
{
    const auto check = SettingsValidation::checkPrefixPaddingMs(requested);
    const int value = check.ok() ? requested : SettingsValidation::defaultPrefixPaddingMs;
    if (!check.ok())
        reportReset(check.error());
    if (assign(*m_store, m_prefixPaddingMs, value, "prefixPaddingMs", value))
        emit prefixPaddingMsChanged(m_prefixPaddingMs);
}

void AppSettings::setSilenceDurationMs(int requested)
{
    const auto check = SettingsValidation::checkSilenceDurationMs(requested);
    const int value = check.ok() ? requested : SettingsValidation::defaultSilenceDurationMs;
    if (!check.ok())
        reportReset(check.error());
    if (assign(*m_store, m_silenceDurationMs, value, "silenceDurationMs", value))
        emit silenceDurationMsChanged(m_silenceDurationMs);
}

void AppSettings::setSystemPrompt(const QString &value)
{
    if (assign(*m_store, m_systemPrompt, value, "systemPrompt", value)) {
        emit systemPromptChanged(m_systemPrompt);
        emit instructionsChanged();
    }
}

void AppSettings::setContextText(const QString &value)
{
    if (assign(*m_store, m_contextText, value, "contextText", value)) {
        emit contextTextChanged(m_contextText);
        emit instructionsChanged();
    }
}

void AppSettings::setContextFileNames(const QStringList &value)
{
    if (assign(*m_store, m_contextFileNames, value, "contextFileNames", value))
        emit contextFileNamesChanged(m_contextFileNames);
}

void AppSettings::setReconnectMinutes(int value)
{
    if (assign(*m_store, m_reconnectMinutes, value, "reconnectMinutes", value))
        emit reconnectMinutesChanged(m_reconnectMinutes);
}

void AppSettings::setAppearance(Appearance value)
{
    if (assign(*m_store, m_appearance, value, "appearance", rawValue(value)))
        emit appearanceChanged(m_appearance);
}

void AppSettings::setFollowUpWindow(double value)
{
    if (assign(*m_store, m_followUpWindow, value, "followUpWindow", value))
        emit followUpWindowChanged(m_followUpWindow);
}

void AppSettings::setTranscribeAnswersWithService(bool value)
{
    if (assign(*m_store, m_transcribeAnswersWithService, value, "transcribeAnswersWithService", value))
        emit transcribeAnswersWithServiceChanged(m_transcribeAnswersWithService);
}

void AppSettings::setTranscribeMyAnswers(bool value)
{
    if (assign(*m_store, m_transcribeMyAnswers, value, "transcribeMyAnswers", value))
        emit transcribeMyAnswersChanged(m_transcribeMyAnswers);
}

void AppSettings::setMeetingSource(MeetingSource value)
{
    if (assign(*m_store, m_meetingSource, value, "meetingSource", rawValue(value)))
        emit meetingSourceChanged(m_meetingSource);
}

void AppSettings::setTappedBundleID(const QString &value)
{
    if (assign(*m_store, m_tappedBundleID, value, "tappedBundleID", value))
        emit tappedBundleIDChanged(m_tappedBundleID);
}

void AppSettings::setStreamSource(StreamSource value)
{
    if (assign(*m_store, m_streamSource, value, "streamSource", rawValue(value)))
        emit streamSourceChanged(m_streamSource);
}

void AppSettings::setFontSize(double value)
{
    if (assign(*m_store, m_fontSize, value, "fontSize", value))
        emit fontSizeChanged(m_fontSize);
}

void AppSettings::setFontFamily(const QString &value)
{
    if (assign(*m_store, m_fontFamily, value, "fontFamily", value))
        emit fontFamilyChanged(m_fontFamily);
}

void AppSettings::setInterviewers(const QList<Interviewer> &value)
{
    if (assign(*m_store, m_interviewers, value, "interviewers", Interviewer::encodeList(value))) {
        emit interviewersChanged(m_interviewers);
        emit instructionsChanged();
    }
}

void AppSettings::setCompanyName(const QString &value)
{
    if (assign(*m_store, m_companyName, value, "companyName", value)) {
        emit companyNameChanged(m_companyName);
        emit instructionsChanged();
    }
}

void AppSettings::setRoleTitle(const QString &value)
{
    if (assign(*m_store, m_roleTitle, value, "roleTitle", value)) {
        emit roleTitleChanged(m_roleTitle);
        emit instructionsChanged();
    }
}

void AppSettings::setJobDescription(const QString &value)
{
    if (assign(*m_store, m_jobDescription, value, "jobDescription", value)) {
        emit jobDescriptionChanged(m_jobDescription);
        emit instructionsChanged();
    }
}
