// The answer-style settings, the screen-question note and the recording played as the meeting
// of AppSettings.
#include "settings/AppSettings.h"

#include "settings/StoreReader.h"

namespace {

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

void AppSettings::loadAnswerSettings()
{
    const QSettings &s = *m_store;
    const auto str = [&s](const char *key) { return StoreReader::string(s, QLatin1String(key)).value_or(QString()); };
    m_answerLength = AnswerStyle::lengthFromRaw(str("answerLength")).value_or(AnswerStyle::Length::standard);
    m_answerStructure = AnswerStyle::structureFromRaw(str("answerStructure")).value_or(AnswerStyle::Structure::automatic);
    m_answerLanguage = str("answerLanguage");
    m_transcriptionLanguage = str("transcriptionLanguage");
    m_screenPrivacyNoteShown = StoreReader::boolean(s, QStringLiteral("screenPrivacyNoteShown")).value_or(false);
    const std::optional<int> low = StoreReader::integer(s, QStringLiteral("answerTargetMinSeconds"));
    const std::optional<int> high = StoreReader::integer(s, QStringLiteral("answerTargetMaxSeconds"));
    if (low && high && isAnswerTarget(*low, *high)) {
        m_answerTargetMin = *low;
        m_answerTargetMax = *high;
    }
}

bool AppSettings::isAnswerTarget(int minSeconds, int maxSeconds)
{
    return minSeconds >= 0 && minSeconds < maxSeconds && maxSeconds <= answerTargetLimit;
}

void AppSettings::setAnswerTarget(int minSeconds, int maxSeconds)
{
    if (!isAnswerTarget(minSeconds, maxSeconds))
        return;
    m_store->setValue(QStringLiteral("answerTargetMinSeconds"), minSeconds);
    m_store->setValue(QStringLiteral("answerTargetMaxSeconds"), maxSeconds);
    if (minSeconds != m_answerTargetMin || maxSeconds != m_answerTargetMax) {
        m_answerTargetMin = minSeconds;
        m_answerTargetMax = maxSeconds;
        emit answerTargetChanged(minSeconds, maxSeconds);
    }
}

void AppSettings::setAnswerLength(AnswerStyle::Length value)
{
    if (assign(*m_store, m_answerLength, value, "answerLength", AnswerStyle::rawValue(value))) {
        emit answerLengthChanged(m_answerLength);
        emit instructionsChanged();
    }
}

void AppSettings::setAnswerStructure(AnswerStyle::Structure value)
{
    if (assign(*m_store, m_answerStructure, value, "answerStructure", AnswerStyle::rawValue(value))) {
        emit answerStructureChanged(m_answerStructure);
        emit instructionsChanged();
    }
}

void AppSettings::setAnswerLanguage(const QString &value)
{
    const bool sentenceChanged = m_answerLanguage.trimmed() != value.trimmed();
    if (assign(*m_store, m_answerLanguage, value, "answerLanguage", value)) {
        emit answerLanguageChanged(m_answerLanguage);
        if (sentenceChanged)
            emit instructionsChanged();
    }
}

void AppSettings::setTranscriptionLanguage(const QString &value)
{
    if (assign(*m_store, m_transcriptionLanguage, value, "transcriptionLanguage", value))
        emit transcriptionLanguageChanged(m_transcriptionLanguage);
}

void AppSettings::setScreenPrivacyNoteShown(bool value)
{
    if (assign(*m_store, m_screenPrivacyNoteShown, value, "screenPrivacyNoteShown", value))
        emit screenPrivacyNoteShownChanged(m_screenPrivacyNoteShown);
}

void AppSettings::loadRecordingSettings()
{
    const QSettings &s = *m_store;
    m_recordingFile = StoreReader::string(s, QStringLiteral("recordingFile")).value_or(QString());
    m_stopAtRecordingEnd = StoreReader::boolean(s, QStringLiteral("stopAtRecordingEnd")).value_or(true);
    m_playRecordingAloud = StoreReader::boolean(s, QStringLiteral("playRecordingAloud")).value_or(true);
}

void AppSettings::setRecordingFile(const QString &value)
{
    if (assign(*m_store, m_recordingFile, value, "recordingFile", value))
        emit recordingFileChanged(m_recordingFile);
}

void AppSettings::setStopAtRecordingEnd(bool value)
{
    if (assign(*m_store, m_stopAtRecordingEnd, value, "stopAtRecordingEnd", value))
        emit stopAtRecordingEndChanged(m_stopAtRecordingEnd);
}

void AppSettings::setPlayRecordingAloud(bool value)
{
    if (assign(*m_store, m_playRecordingAloud, value, "playRecordingAloud", value))
        emit playRecordingAloudChanged(m_playRecordingAloud);
}
