#include "ui/MeterBallistics.h"

#include <algorithm>
#include <cmath>

void MeterBallistics::step(double input, double elapsed)
{
    input = std::isnan(input) ? 0.0 : std::clamp(input, 0.0, 1.0);
    elapsed = std::max(0.0, elapsed);
    m_input = input;
    if (input >= m_level) {
        m_level = input;
    } else {
        m_level = input + (m_level - input) * std::exp(-elapsed / fallTimeConstant);
        if (m_level - input < 0.002)
            m_level = input;
    }
    if (m_level >= m_peak) {
        m_peak = m_level;
        m_peakAge = 0;
        return;
    }
    m_peakAge += elapsed;
    if (m_peakAge > peakHold) {
        const double falling = std::min(elapsed, m_peakAge - peakHold);
        m_peak = std::max(m_level, m_peak - falling * peakFallPerSecond);
    }
}
