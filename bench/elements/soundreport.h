/*
 * When the first sound came out of the converter: `{"first_sound_ns":T}`, T of CLOCK_MONOTONIC, in the file
 * beside the WAV file that keeps the sound (asound.conf) whose name ends in ".json".
 */
#pragma once

#include <alsa/asoundlib.h>

#include <stdint.h>

/* Frames at the beginning whose samples (16 bit) are all 0; `size` when there is nothing else. */
snd_pcm_sframes_t silent_frames(const snd_pcm_channel_area_t* areas, unsigned int channels,
    snd_pcm_uframes_t offset, snd_pcm_uframes_t size);

/* Failures are not told: a converter that can not be watched still plays. */
void sound_report_write(int64_t first_sound_ns);
void sound_report_remove(void);
