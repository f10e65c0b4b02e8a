#include "app/UnwiredComponents.h"

QString UnwiredCaptureLink::notConnectedMessage()
{
    return QStringLiteral("Audio capture is not part of this build yet, so a session can't start.");
}

std::optional<QString> UnwiredCaptureLink::start(const CaptureSource &, StreamSource, bool)
{
    return notConnectedMessage();
}

void UnwiredMicTranscription::requestAuthorization(std::function<void(const SpeechAvailability &)> completion)
{
    completion(SpeechAvailability::unsupported(
        QStringLiteral("On-device transcription is not part of this build yet, so your answers won't be transcribed.")));
}

void UnwiredRecordingTranscription::transcribe(const QString &, std::function<void(const RecordingProgress &)>,
                                               std::function<void(const Result &)> completion)
{
    completion(Failed{QStringLiteral("on-device transcription is not part of this build yet.")});
}
