#include "settings/AppSettings.h"

#include "settings/InstructionsBuilder.h"

#include <QMetaType>

#include <array>
#include <QStandardPaths>

namespace {

// Typed reads. Values come back from the ini-style native store as strings, so each reader
// accepts a value of its own type or the exact text the store writes for one; anything else
// (absent, "abc" for a number, "yes" for a bool, a list for a string) yields nothing.

std::optional<bool> readBool(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString();
        if (s == QLatin1String("true"))
            return true;
        if (s == QLatin1String("false"))
            return false;
    }
    return std::nullopt;
}

std::optional<int> readInt(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    bool ok = false;
    int result = 0;
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        result = v.toInt(&ok);
        break;
    case QMetaType::QString:
        result = v.toString().toInt(&ok);
        break;
    default:
        break;
    }
    return ok ? std::optional<int>(result) : std::nullopt;
}

std::optional<double> readDouble(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    bool ok = false;
    double result = 0;
    switch (v.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::LongLong:
        result = v.toDouble(&ok);
        break;
    case QMetaType::QString:
        result = v.toString().toDouble(&ok);
        break;
    default:
        break;
    }
    return ok ? std::optional<double>(result) : std::nullopt;
}

std::optional<QString> readString(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    switch (v.typeId()) {
    case QMetaType::QString:
        return v.toString();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Double:
        return v.toString();
    default:
        return std::nullopt;
    }
}

std::optional<QStringList> readStringList(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    switch (v.typeId()) {
    case QMetaType::QStringList:
        return v.toStringList();
    case QMetaType::QVariantList: {
        QStringList result;
        for (const QVariant &item : v.toList()) {
            if (item.typeId() != QMetaType::QString)
                return std::nullopt;
            result.append(item.toString());
        }
        return result;
    }
    case QMetaType::QString:
        // The ini format writes a one-element list as a plain string.
        return QStringList{v.toString()};
    default:
        return std::nullopt;
    }
}

std::optional<QByteArray> readData(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    if (v.typeId() == QMetaType::QByteArray)
        return v.toByteArray();
    return std::nullopt;
}

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

constexpr std::array<std::pair<AppSettings::MeetingSource, const char *>, 3> meetingSources{{
    {AppSettings::MeetingSource::systemOutput, "systemOutput"},
    {AppSettings::MeetingSource::singleApp, "singleApp"},
    {AppSettings::MeetingSource::audioDevice, "audioDevice"},
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

template<typename E, std::size_t N>
QList<E> allOf(const std::array<std::pair<E, const char *>, N> &table)
{
    QList<E> result;
    for (const auto &entry : table)
        result.append(entry.first);
    return result;
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
QList<AppSettings::MeetingSource> AppSettings::allMeetingSources() { return allOf(meetingSources); }
QList<AppSettings::StreamSource> AppSettings::allStreamSources() { return allOf(streamSources); }
QList<AppSettings::Appearance> AppSettings::allAppearances() { return allOf(appearances); }

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
        return readString(s, QLatin1String(key)).value_or(fallback);
    };
    const auto boolean = [&s](const char *key, bool fallback) {
        return readBool(s, QLatin1String(key)).value_or(fallback);
    };
    const auto integer = [&s](const char *key, int fallback) {
        return readInt(s, QLatin1String(key)).value_or(fallback);
    };
    const auto real = [&s](const char *key, double fallback) {
        return readDouble(s, QLatin1String(key)).value_or(fallback);
    };
    const auto raw = [&s](const char *key) { return readString(s, QLatin1String(key)).value_or(QString()); };

    m_apiKey = m_secrets.loadKey();
    m_hasCompletedOnboarding = boolean("hasCompletedOnboarding", false);
    m_model = str("model", QString::fromLatin1(defaultModel));
    m_transcribeModel = str("transcribeModel", QString::fromLatin1(defaultTranscribeModel));
    m_deviceUID = str("deviceUID", QString());
    m_micChannel = integer("micChannel", 0);
    m_meetingChannel = integer("meetingChannel", 1);
    m_saveAudio = boolean("saveAudio", false);
    m_alwaysOnTop = boolean("alwaysOnTop", true);
    m_vadThreshold = real("vadThreshold", 0.5);
    m_prefixPaddingMs = integer("prefixPaddingMs", 300);
    m_silenceDurationMs = integer("silenceDurationMs", 800);
    m_systemPrompt = str("systemPrompt", InstructionsBuilder::defaultSystemPrompt());
    m_contextText = str("contextText", QString());
    m_contextFileNames = readStringList(s, QStringLiteral("contextFileNames")).value_or(QStringList());
    // Written on every change but deliberately not read back: each launch starts at 25.
    m_reconnectMinutes = defaultReconnectMinutes;
    m_appearance = appearanceFromRaw(raw("appearance")).value_or(Appearance::system);
    m_followUpWindow = real("followUpWindow", 8.0);
    m_transcribeMyAnswers = boolean("transcribeMyAnswers", false);
    m_meetingSource = meetingSourceFromRaw(raw("meetingSource")).value_or(MeetingSource::systemOutput);
    m_tappedBundleID = str("tappedBundleID", QString());
    m_streamSource = streamSourceFromRaw(raw("streamSource")).value_or(StreamSource::meetingOnly);
    m_fontSize = real("fontSize", 14.0);
    m_fontFamily = str("fontFamily", QString());
    // The panel always has exactly two slots.
    std::optional<QList<Interviewer>> panel;
    if (const auto data = readData(s, QStringLiteral("interviewers")))
        panel = Interviewer::decodeList(*data);
    if (panel && panel->size() == 2)
        m_interviewers = *panel;
    else
        m_interviewers = {Interviewer(), Interviewer()};
    m_companyName = str("companyName", QString());
    m_roleTitle = str("roleTitle", QString());
    m_jobDescription = str("jobDescription", QString());
}

void AppSettings::persist(const char *key, const QVariant &value)
{
    m_store->setValue(QLatin1String(key), value);
}

QString AppSettings::instructions() const
{
    return InstructionsBuilder::build({m_systemPrompt, m_companyName, m_roleTitle, m_jobDescription,
                                       m_interviewers, m_contextText});
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
    const bool changed = m_apiKey != value;
    m_apiKey = value;
    m_secrets.save(m_apiKey);
    if (!changed)
        return;
    emit apiKeyChanged(m_apiKey);
}

void AppSettings::setHasCompletedOnboarding(bool value)
{
    const bool changed = m_hasCompletedOnboarding != value;
    m_hasCompletedOnboarding = value;
    persist("hasCompletedOnboarding", m_hasCompletedOnboarding);
    if (!changed)
        return;
    emit hasCompletedOnboardingChanged(m_hasCompletedOnboarding);
}

void AppSettings::setModel(const QString &value)
{
    const bool changed = m_model != value;
    m_model = value;
    persist("model", m_model);
    if (!changed)
        return;
    emit modelChanged(m_model);
}

void AppSettings::setTranscribeModel(const QString &value)
{
    const bool changed = m_transcribeModel != value;
    m_transcribeModel = value;
    persist("transcribeModel", m_transcribeModel);
    if (!changed)
        return;
    emit transcribeModelChanged(m_transcribeModel);
}

void AppSettings::setDeviceUID(const QString &value)
{
    const bool changed = m_deviceUID != value;
    m_deviceUID = value;
    persist("deviceUID", m_deviceUID);
    if (!changed)
        return;
    emit deviceUIDChanged(m_deviceUID);
}

void AppSettings::setMicChannel(int value)
{
    const bool changed = m_micChannel != value;
    m_micChannel = value;
    persist("micChannel", m_micChannel);
    if (!changed)
        return;
    emit micChannelChanged(m_micChannel);
}

void AppSettings::setMeetingChannel(int value)
{
    const bool changed = m_meetingChannel != value;
    m_meetingChannel = value;
    persist("meetingChannel", m_meetingChannel);
    if (!changed)
        return;
    emit meetingChannelChanged(m_meetingChannel);
}

void AppSettings::setSaveAudio(bool value)
{
    const bool changed = m_saveAudio != value;
    m_saveAudio = value;
    persist("saveAudio", m_saveAudio);
    if (!changed)
        return;
    emit saveAudioChanged(m_saveAudio);
}

void AppSettings::setAlwaysOnTop(bool value)
{
    const bool changed = m_alwaysOnTop != value;
    m_alwaysOnTop = value;
    persist("alwaysOnTop", m_alwaysOnTop);
    if (!changed)
        return;
    emit alwaysOnTopChanged(m_alwaysOnTop);
}

void AppSettings::setVadThreshold(double value)
{
    const bool changed = m_vadThreshold != value;
    m_vadThreshold = value;
    persist("vadThreshold", m_vadThreshold);
    if (!changed)
        return;
    emit vadThresholdChanged(m_vadThreshold);
}

void AppSettings::setPrefixPaddingMs(int value)
{
    const bool changed = m_prefixPaddingMs != value;
    m_prefixPaddingMs = value;
    persist("prefixPaddingMs", m_prefixPaddingMs);
    if (!changed)
        return;
    emit prefixPaddingMsChanged(m_prefixPaddingMs);
}

void AppSettings::setSilenceDurationMs(int value)
{
    const bool changed = m_silenceDurationMs != value;
    m_silenceDurationMs = value;
    persist("silenceDurationMs", m_silenceDurationMs);
    if (!changed)
        return;
    emit silenceDurationMsChanged(m_silenceDurationMs);
}

void AppSettings::setSystemPrompt(const QString &value)
{
    const bool changed = m_systemPrompt != value;
    m_systemPrompt = value;
    persist("systemPrompt", m_systemPrompt);
    if (!changed)
        return;
    emit systemPromptChanged(m_systemPrompt);
    emit instructionsChanged();
}

void AppSettings::setContextText(const QString &value)
{
    const bool changed = m_contextText != value;
    m_contextText = value;
    persist("contextText", m_contextText);
    if (!changed)
        return;
    emit contextTextChanged(m_contextText);
    emit instructionsChanged();
}

void AppSettings::setContextFileNames(const QStringList &value)
{
    const bool changed = m_contextFileNames != value;
    m_contextFileNames = value;
    persist("contextFileNames", m_contextFileNames);
    if (!changed)
        return;
    emit contextFileNamesChanged(m_contextFileNames);
}

void AppSettings::setReconnectMinutes(int value)
{
    const bool changed = m_reconnectMinutes != value;
    m_reconnectMinutes = value;
    persist("reconnectMinutes", m_reconnectMinutes);
    if (!changed)
        return;
    emit reconnectMinutesChanged(m_reconnectMinutes);
}

void AppSettings::setAppearance(Appearance value)
{
    const bool changed = m_appearance != value;
    m_appearance = value;
    persist("appearance", rawValue(m_appearance));
    if (!changed)
        return;
    emit appearanceChanged(m_appearance);
}

void AppSettings::setFollowUpWindow(double value)
{
    const bool changed = m_followUpWindow != value;
    m_followUpWindow = value;
    persist("followUpWindow", m_followUpWindow);
    if (!changed)
        return;
    emit followUpWindowChanged(m_followUpWindow);
}

void AppSettings::setTranscribeMyAnswers(bool value)
{
    const bool changed = m_transcribeMyAnswers != value;
    m_transcribeMyAnswers = value;
    persist("transcribeMyAnswers", m_transcribeMyAnswers);
    if (!changed)
        return;
    emit transcribeMyAnswersChanged(m_transcribeMyAnswers);
}

void AppSettings::setMeetingSource(MeetingSource value)
{
    const bool changed = m_meetingSource != value;
    m_meetingSource = value;
    persist("meetingSource", rawValue(m_meetingSource));
    if (!changed)
        return;
    emit meetingSourceChanged(m_meetingSource);
}

void AppSettings::setTappedBundleID(const QString &value)
{
    const bool changed = m_tappedBundleID != value;
    m_tappedBundleID = value;
    persist("tappedBundleID", m_tappedBundleID);
    if (!changed)
        return;
    emit tappedBundleIDChanged(m_tappedBundleID);
}

void AppSettings::setStreamSource(StreamSource value)
{
    const bool changed = m_streamSource != value;
    m_streamSource = value;
    persist("streamSource", rawValue(m_streamSource));
    if (!changed)
        return;
    emit streamSourceChanged(m_streamSource);
}

void AppSettings::setFontSize(double value)
{
    const bool changed = m_fontSize != value;
    m_fontSize = value;
    persist("fontSize", m_fontSize);
    if (!changed)
        return;
    emit fontSizeChanged(m_fontSize);
}

void AppSettings::setFontFamily(const QString &value)
{
    const bool changed = m_fontFamily != value;
    m_fontFamily = value;
    persist("fontFamily", m_fontFamily);
    if (!changed)
        return;
    emit fontFamilyChanged(m_fontFamily);
}

void AppSettings::setInterviewers(const QList<Interviewer> &value)
{
    const bool changed = m_interviewers != value;
    m_interviewers = value;
    persist("interviewers", Interviewer::encodeList(m_interviewers));
    if (!changed)
        return;
    emit interviewersChanged(m_interviewers);
    emit instructionsChanged();
}

void AppSettings::setCompanyName(const QString &value)
{
    const bool changed = m_companyName != value;
    m_companyName = value;
    persist("companyName", m_companyName);
    if (!changed)
        return;
    emit companyNameChanged(m_companyName);
    emit instructionsChanged();
}

void AppSettings::setRoleTitle(const QString &value)
{
    const bool changed = m_roleTitle != value;
    m_roleTitle = value;
    persist("roleTitle", m_roleTitle);
    if (!changed)
        return;
    emit roleTitleChanged(m_roleTitle);
    emit instructionsChanged();
}

void AppSettings::setJobDescription(const QString &value)
{
    const bool changed = m_jobDescription != value;
    m_jobDescription = value;
    persist("jobDescription", m_jobDescription);
    if (!changed)
        return;
    emit jobDescriptionChanged(m_jobDescription);
    emit instructionsChanged();
}
