#pragma once

#include <cstdint>
#include <vector>

// Finds the utterances of each channel of a recording from its level alone, with the rules of
// the live answer timer: a 50 ms window whose peak reaches the voice threshold is voice, and an
// utterance ends once 2 s pass without voice. Audio is fed in order, interleaved, in blocks of
// any size; memory does not grow with the recording's length beyond the list of utterances.
class UtteranceSplitter
{
public:
    struct Utterance
    {
        int channel = 0;
        std::int64_t startFrame = 0; // first frame of the first voiced window
        std::int64_t endFrame = 0;   // one past the last frame of the last voiced window
        friend bool operator==(const Utterance &, const Utterance &) = default;
    };

    static constexpr float kVoiceThreshold = 0.045f;
    static constexpr double kSilenceToEnd = 2.0;
    static constexpr double kWindowSeconds = 0.05;
    // Longer stretches of speech are cut here, so that none holds up the decoder for long.
    static constexpr double kMaxUtteranceSeconds = 30.0;

    UtteranceSplitter(int channels, double rate);

    void process(const float *interleaved, std::int64_t frames);
    // Ends the recording; returns every utterance, ordered by start and then by channel.
    std::vector<Utterance> finish();

private:
    struct Channel
    {
        float windowPeak = 0.0f;
        bool open = false;
        std::int64_t start = 0;
        std::int64_t lastVoiceEnd = 0;
    };
    void closeWindow(int channel, std::int64_t windowStart, std::int64_t windowEnd);
    void close(int channel);

    int m_channels;
    std::int64_t m_windowFrames;
    std::int64_t m_silenceFrames;
    std::int64_t m_maxFrames;
    std::int64_t m_position = 0;    // frames fed so far
    std::int64_t m_windowStart = 0; // first frame of the running window
    std::vector<Channel> m_state;
    std::vector<Utterance> m_found;
};
