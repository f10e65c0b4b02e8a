#pragma once

// A 16-bit mono WAV file in memory, as the recording transcription sends one utterance.
#include "audio/WavWriter.h"

#include <QByteArray>
#include <QtEndian>

#include <cstdint>
#include <vector>

inline QByteArray testWav(std::vector<std::int16_t> samples, int sampleRate = 16000)
{
    qToLittleEndian<qint16>(samples.data(), static_cast<qsizetype>(samples.size()), samples.data());
    const auto bytes = static_cast<qsizetype>(samples.size() * sizeof(std::int16_t));
    return WavWriter::header(sampleRate, 1, bytes) + QByteArray(reinterpret_cast<const char *>(samples.data()), bytes);
}
