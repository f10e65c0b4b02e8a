#pragma once

// How a level meter moves: it rises at once to a louder level, falls back smoothly (so a
// meter fed 20 times a second does not flicker) and keeps a peak mark for a moment before
// the mark falls too. Pure arithmetic over the time that passed, for the meter and its tests.
class MeterBallistics
{
public:
    static constexpr double fallTimeConstant = 0.15;   // seconds for the bar to fall by 63 %
    static constexpr double peakHold = 1.0;            // seconds the peak mark stays put
    static constexpr double peakFallPerSecond = 1.2;   // then it falls this much a second

    // Takes the newest input level (clamped to 0...1) after `elapsed` seconds.
    void step(double input, double elapsed);
    // Lets time pass with the last input (the meter's animation between levels).
    void advance(double elapsed) { step(m_input, elapsed); }
    void reset() { *this = MeterBallistics(); }

    double level() const { return m_level; }
    double peak() const { return m_peak; }
    // Nothing left to animate.
    bool isAtRest() const { return m_level == m_input && m_peak <= m_level; }

private:
    double m_input = 0;
    double m_level = 0;
    double m_peak = 0;
    double m_peakAge = 0;
};
