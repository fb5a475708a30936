// The sound converter's ALSA device, alone and below GStreamer's alsasink.
#include "kit/samples.h"
#include "platform.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstring>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// The converter itself, 48,000 Hz, with a buffer of two seconds in periods of 10 ms: it does not run empty
/// when a machine that has other work holds the test up.
class Converter : public testing::Test
{
protected:
    static constexpr snd_pcm_uframes_t bufferFrames = 96000;

    void SetUp() override
    {
        snd_config_t* config = nullptr;
        snd_input_t* input = nullptr;
        const std::string text = "pcm.converter { type instrumentdac }";
        ASSERT_EQ(snd_config_top(&config), 0);
        ASSERT_EQ(snd_input_buffer_open(&input, text.c_str(), static_cast<ssize_t>(text.size())), 0);
        ASSERT_EQ(snd_config_load(config, input), 0);
        snd_input_close(input);
        ASSERT_EQ(snd_pcm_open_lconf(&m_pcm, "converter", SND_PCM_STREAM_PLAYBACK, 0, config), 0);
        snd_config_delete(config);
        setParameters();
    }

    void TearDown() override
    {
        if (m_pcm != nullptr)
            snd_pcm_close(m_pcm);
    }

    void setParameters()
    {
        snd_pcm_hw_params_t* hardware = nullptr;
        snd_pcm_hw_params_alloca(&hardware);
        snd_pcm_hw_params_any(m_pcm, hardware);
        ASSERT_EQ(snd_pcm_hw_params_set_access(m_pcm, hardware, SND_PCM_ACCESS_RW_INTERLEAVED), 0);
        ASSERT_EQ(snd_pcm_hw_params_set_format(m_pcm, hardware, SND_PCM_FORMAT_S16_LE), 0);
        ASSERT_EQ(snd_pcm_hw_params_set_channels(m_pcm, hardware, 2), 0);
        ASSERT_EQ(snd_pcm_hw_params_set_rate(m_pcm, hardware, 48000, 0), 0);
        ASSERT_EQ(snd_pcm_hw_params_set_buffer_size(m_pcm, hardware, bufferFrames), 0);
        ASSERT_EQ(snd_pcm_hw_params_set_period_size(m_pcm, hardware, 480, 0), 0);
        ASSERT_EQ(snd_pcm_hw_params(m_pcm, hardware), 0);
    }

    void setStartThreshold(snd_pcm_uframes_t frames)
    {
        snd_pcm_sw_params_t* software = nullptr;
        snd_pcm_sw_params_alloca(&software);
        snd_pcm_sw_params_current(m_pcm, software);
        ASSERT_EQ(snd_pcm_sw_params_set_start_threshold(m_pcm, software, frames), 0);
        ASSERT_EQ(snd_pcm_sw_params(m_pcm, software), 0);
    }

    snd_pcm_sframes_t write(snd_pcm_uframes_t frames)
    {
        const std::vector<std::int16_t> silence(frames * 2);
        return snd_pcm_writei(m_pcm, silence.data(), frames);
    }

    /// Silence and then a click, in one call, so that nothing can come between.
    snd_pcm_sframes_t writeSilenceAndClick(snd_pcm_uframes_t silence)
    {
        std::vector<std::int16_t> samples((silence + 480) * 2);
        samples[silence * 2 + 1] = -1; // the quietest there is, on the right
        return snd_pcm_writei(m_pcm, samples.data(), silence + 480);
    }

    snd_pcm_t* m_pcm = nullptr;
};

/// Monotonic time at which the converter's report says that the first sound came out; 0 without a report.
std::int64_t reportedSoundNs()
{
    const auto bytes = tessary::test::bytesOfFile(scratchFolder() + "/sound.json");
    const std::string text(bytes.begin(), bytes.end());
    std::int64_t ns = 0;
    return std::sscanf(text.c_str(), "{\"first_sound_ns\":%" SCNd64 "}", &ns) == 1 ? ns : 0;
}

std::int64_t monotonicNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

struct Sound
{
    unsigned rate = 0;
    unsigned channels = 0;
    std::vector<std::int16_t> left;
};

std::uint32_t little(const std::vector<std::uint8_t>& bytes, std::size_t at, unsigned count)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i)
        value |= static_cast<std::uint32_t>(bytes.at(at + i)) << 8 * i;
    return value;
}

Sound readSound()
{
    const auto bytes = tessary::test::bytesOfFile(scratchFolder() + "/sound.wav");
    Sound sound;
    if (bytes.size() < 44)
        return sound;
    EXPECT_EQ(std::memcmp(bytes.data(), "RIFF", 4), 0);
    sound.channels = little(bytes, 22, 2);
    sound.rate = little(bytes, 24, 4);
    EXPECT_EQ(little(bytes, 34, 2), 16U);
    for (std::size_t at = 44; at + 4 <= bytes.size(); at += 4)
        sound.left.push_back(static_cast<std::int16_t>(little(bytes, at, 2)));
    return sound;
}

// An expected failure is not to be printed.
void ignoreError(const char*, int, const char*, int, const char*, ...) { }

struct ClockReading
{
    Clock::time_point ours;
    GstClockTime its;
};

/// Both clocks at one moment: read again while something comes between the two.
ClockReading readTogether(GstClock* clock)
{
    for (;;) {
        const ClockReading reading{Clock::now(), gst_clock_get_time(clock)};
        if (Clock::now() - reading.ours < std::chrono::milliseconds(5))
            return reading;
    }
}

// The long buffer bridges the pauses of a loaded machine.
std::string tone(int buffers)
{
    return "audiotestsrc freq=440 samplesperbuffer=480 num-buffers=" + std::to_string(buffers)
        + " ! audio/x-raw,rate=48000 ! audioconvert ! alsasink name=sink buffer-time=1000000";
}

} // namespace

TEST_F(Converter, PlaysAtTheSampleRate)
{
    const auto begin = Clock::now();
    for (int i = 0; i < 50; ++i) // half a second
        ASSERT_EQ(write(480), 480);
    ASSERT_EQ(snd_pcm_drain(m_pcm), 0);
    EXPECT_GE(secondsSince(begin), 0.49);
}

TEST_F(Converter, KnowsHowMuchIsStillToPlay)
{
    constexpr snd_pcm_sframes_t written = 48000;
    const auto begin = Clock::now();
    ASSERT_EQ(write(written), written); // the first frames start it
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    snd_pcm_sframes_t delay = 0;
    ASSERT_EQ(snd_pcm_delay(m_pcm, &delay), 0);
    const double played = secondsSince(begin) * 48000;
    EXPECT_LE(delay, written - 1440);
    EXPECT_GE(static_cast<double>(delay), written - played - 480) << "the clock does not run ahead";
}

TEST_F(Converter, TellsAnUnderrunAndPlaysOnAfterwards)
{
    ASSERT_EQ(write(960), 960);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(snd_pcm_avail(m_pcm), -EPIPE);
    EXPECT_EQ(snd_pcm_state(m_pcm), SND_PCM_STATE_XRUN);
    ASSERT_EQ(snd_pcm_prepare(m_pcm), 0);
    ASSERT_EQ(write(48000), 48000);
    EXPECT_EQ(snd_pcm_drain(m_pcm), 0);
}

TEST_F(Converter, WakesWhoWaitsForRoom)
{
    ASSERT_EQ(write(bufferFrames), bufferFrames); // full, which starts it too
    ASSERT_EQ(snd_pcm_state(m_pcm), SND_PCM_STATE_RUNNING);
    EXPECT_EQ(snd_pcm_wait(m_pcm, 60000), 1);
    EXPECT_GE(snd_pcm_avail(m_pcm), 480);
}

TEST_F(Converter, DoesNotWakeWhileThereIsNoRoom)
{
    setStartThreshold(100000);
    ASSERT_EQ(write(bufferFrames), bufferFrames); // full and not started
    EXPECT_EQ(snd_pcm_wait(m_pcm, 100), 0);
}

TEST_F(Converter, TellsWhenTheFirstSoundComesOut)
{
    constexpr std::int64_t silenceNs = 100000000;
    const std::int64_t before = monotonicNs();
    ASSERT_EQ(writeSilenceAndClick(4800), 5280); // starts it
    const std::int64_t after = monotonicNs();
    EXPECT_GE(reportedSoundNs(), before + silenceNs);
    EXPECT_LE(reportedSoundNs(), after + silenceNs);
}

TEST_F(Converter, DoesNotTellASoundThatWasNeverPlayed)
{
    setStartThreshold(100000);
    ASSERT_EQ(writeSilenceAndClick(0), 480); // and not started
    EXPECT_EQ(reportedSoundNs(), 0);
    ASSERT_EQ(snd_pcm_drop(m_pcm), 0);
    ASSERT_EQ(snd_pcm_prepare(m_pcm), 0);
    ASSERT_EQ(writeSilenceAndClick(4800), 5280);
    const std::int64_t before = monotonicNs();
    ASSERT_EQ(snd_pcm_start(m_pcm), 0);
    EXPECT_GE(reportedSoundNs(), before + 100000000) << "the second click";
}

TEST_F(Converter, ForgetsTheFirstSoundWhenItIsOpened)
{
    ASSERT_EQ(writeSilenceAndClick(0), 480);
    EXPECT_NE(reportedSoundNs(), 0);
    snd_pcm_close(m_pcm);
    m_pcm = nullptr;
    SetUp();
    EXPECT_EQ(reportedSoundNs(), 0);
}

TEST(ConverterDevice, CanNotRecord)
{
    snd_config_t* config = nullptr;
    ASSERT_EQ(snd_config_top(&config), 0);
    snd_input_t* input = nullptr;
    const std::string text = "pcm.converter { type instrumentdac }";
    ASSERT_EQ(snd_input_buffer_open(&input, text.c_str(), static_cast<ssize_t>(text.size())), 0);
    ASSERT_EQ(snd_config_load(config, input), 0);
    snd_input_close(input);
    const snd_lib_error_handler_t usual = snd_lib_error;
    snd_lib_error_set_handler(ignoreError);
    snd_pcm_t* pcm = nullptr;
    EXPECT_EQ(snd_pcm_open_lconf(&pcm, "converter", SND_PCM_STREAM_CAPTURE, 0, config), -EINVAL);
    snd_lib_error_set_handler(usual);
    snd_config_delete(config);
}

// A sine of angular step w obeys x[n] = 2 cos(w) x[n-1] - x[n-2]; a dropped or repeated sample breaks that.
TEST(Loudspeaker, KeepsTheToneWithoutABreakAndInRealTime)
{
    Pipeline pipeline(tone(100)); // one second
    const auto begin = Clock::now();
    ASSERT_EQ(pipeline.playToEnd(), "");
    EXPECT_GE(secondsSince(begin), 0.95);
    const Sound sound = readSound();
    ASSERT_EQ(sound.rate, 48000U);
    ASSERT_EQ(sound.channels, 2U);
    ASSERT_GE(sound.left.size(), 48000U);
    const double factor = 2 * std::cos(2 * M_PI * 440 / sound.rate);
    int breaks = 0;
    for (std::size_t i = 2; i < 48000; ++i) {
        const double expected = factor * sound.left[i - 1] - sound.left[i - 2];
        breaks += std::abs(sound.left[i] - expected) > 8 ? 1 : 0;
    }
    EXPECT_EQ(breaks, 0);
    const auto loudest = std::max_element(sound.left.begin(), sound.left.end());
    EXPECT_GT(*loudest, 20000);
}

TEST(Loudspeaker, KeepsTheLastPlayingOnly)
{
    Pipeline first(tone(60));
    ASSERT_EQ(first.playToEnd(), "");
    const std::size_t longer = readSound().left.size();
    Pipeline second(tone(20));
    ASSERT_EQ(second.playToEnd(), "");
    EXPECT_LT(readSound().left.size(), longer);
}

TEST(Loudspeaker, GivesAClockThatRunsTrue)
{
    Pipeline pipeline(tone(100000));
    pipeline.setState(GST_STATE_PLAYING);
    ASSERT_EQ(
        gst_element_get_state(pipeline.get(), nullptr, nullptr, 60 * GST_SECOND), GST_STATE_CHANGE_SUCCESS);
    GstClock* clock = gst_pipeline_get_clock(GST_PIPELINE(pipeline.get()));
    ASSERT_NE(clock, nullptr);
    EXPECT_STREQ(G_OBJECT_TYPE_NAME(clock), "GstAudioClock");
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the start's settling
    const ClockReading first = readTogether(clock);
    std::this_thread::sleep_for(std::chrono::seconds(5));
    const ClockReading last = readTogether(clock);
    gst_object_unref(clock);
    const double elapsed = std::chrono::duration<double>(last.ours - first.ours).count();
    EXPECT_NEAR(static_cast<double>(last.its - first.its) / GST_SECOND / elapsed, 1.0, 0.01);
}
