#include "speech/Resampler.h"

#include "speech/SpeechLogging.h"

#include <soxr.h>

#include <cmath>

Resampler::Resampler(double inputRate, double outputRate)
    : m_ratio(outputRate / inputRate)
{
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_INT16_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_MQ, 0);
    soxr_error_t error = nullptr;
    m_soxr = soxr_create(inputRate, outputRate, 1, &error, &io, &quality, nullptr);
    if (error) {
        qCWarning(lcSpeech, "[Ketterbloom] resampler could not be created: %s", error);
        m_soxr = nullptr;
    }
}

Resampler::~Resampler()
{
    if (m_soxr)
        soxr_delete(m_soxr);
}

void Resampler::process(const float *in, std::size_t frames, std::vector<std::int16_t> &out)
{
    if (!m_soxr)
        return;
    while (frames > 0) {
        const std::size_t room = static_cast<std::size_t>(std::ceil(frames * m_ratio)) + 64;
        const std::size_t start = out.size();
        out.resize(start + room);
        std::size_t used = 0;
        std::size_t made = 0;
        if (soxr_process(m_soxr, in, frames, &used, out.data() + start, room, &made)) {
            out.resize(start);
            return;
        }
        out.resize(start + made);
        in += used;
        frames -= used;
        if (used == 0 && made == 0)
            return;
    }
}

void Resampler::flush(std::vector<std::int16_t> &out)
{
    if (!m_soxr)
        return;
    for (;;) {
        const std::size_t room = 4096;
        const std::size_t start = out.size();
        out.resize(start + room);
        std::size_t made = 0;
        soxr_process(m_soxr, nullptr, 0, nullptr, out.data() + start, room, &made);
        out.resize(start + made);
        if (made < room)
            break;
    }
    soxr_clear(m_soxr);
}

void Resampler::reset()
{
    if (m_soxr)
        soxr_clear(m_soxr);
}
