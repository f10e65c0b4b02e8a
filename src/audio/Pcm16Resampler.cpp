#include "audio/Pcm16Resampler.h"

#include <soxr.h>

#include <QtEndian>

#include <cmath>

Pcm16Resampler::Pcm16Resampler(double inputRate)
    : m_inputRate(inputRate)
{
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_INT16_I);
    soxr_io_spec_t ioNoDither = io;
    ioNoDither.flags |= SOXR_NO_DITHER;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    // Smaller transform sizes than the defaults: the output then follows each 20 ms block
    // within one block instead of arriving in bursts two blocks late.
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    runtime.log2_min_dft_size = 8;
    runtime.log2_large_dft_size = 10;
    m_soxr = soxr_create(inputRate, outputRate, 1, &error, &ioNoDither, &quality, &runtime);
    if (error)
        m_soxr = nullptr;
    m_out.resize(4096);
}

Pcm16Resampler::~Pcm16Resampler()
{
    if (m_soxr)
        soxr_delete(m_soxr);
}

QByteArray Pcm16Resampler::process(const float *samples, int frames)
{
    if (!m_soxr || frames <= 0)
        return {};
    const size_t capacity = size_t(std::floor(outputRate / m_inputRate * frames)) + 1024;
    if (m_out.size() < capacity)
        m_out.resize(capacity);
    size_t used = 0;
    size_t produced = 0;
    if (soxr_process(m_soxr, samples, size_t(frames), &used, m_out.data(), capacity, &produced) != nullptr)
        return {};
    if (produced == 0)
        return {};
    QByteArray bytes(qsizetype(produced * 2), Qt::Uninitialized);
    qToLittleEndian<qint16>(m_out.data(), qsizetype(produced), bytes.data());
    return bytes;
}
