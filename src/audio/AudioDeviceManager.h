#pragma once

#include "audio/AudioInputDevice.h"

#include <QList>

#include <optional>

namespace PulseQueries { struct SourceEntry; }

// The computer's audio input devices, asked afresh of the sound server on every call.
// Each call opens a short-lived connection; none throws or blocks for long (3 s at most
// when the server does not answer, then an empty answer).
class AudioDeviceManager
{
public:
    AudioDeviceManager() = delete;

    // Sources that are not monitors, sorted by name (case-insensitive, locale-aware).
    static QList<AudioInputDevice> inputDevices();
    // The first listed device whose uid equals `uid` exactly.
    static std::optional<AudioInputDevice> device(const QString &uid);
    // The server's default source, when it is a listed input device.
    static std::optional<AudioInputDevice> defaultInputDevice();

    // Building blocks, exposed for the capture engine and tests.
    static AudioInputDevice fromSource(const PulseQueries::SourceEntry &source);
    static QList<AudioInputDevice> listFrom(const QList<PulseQueries::SourceEntry> &sources);
    static void sortByName(QList<AudioInputDevice> &devices);
};
