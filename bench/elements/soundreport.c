#include "soundreport.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char default_sound[] = "/run/bench/sound.wav"; /* as in asound.conf */

/* The report's path with `suffix`; an empty text when it is too long. */
static void report_path(char path[PATH_MAX], const char* suffix)
{
    const char* given = getenv("INSTRUMENT_SOUND");
    const char* sound = given != NULL && *given != '\0' ? given : default_sound;
    const char* slash = strrchr(sound, '/');
    const char* dot = strrchr(slash != NULL ? slash : sound, '.');
    const int stem = (int)(dot != NULL ? (size_t)(dot - sound) : strlen(sound));
    if (snprintf(path, PATH_MAX, "%.*s%s", stem, sound, suffix) >= PATH_MAX)
        path[0] = '\0';
}

snd_pcm_sframes_t silent_frames(const snd_pcm_channel_area_t* areas, unsigned int channels,
    snd_pcm_uframes_t offset, snd_pcm_uframes_t size)
{
    for (snd_pcm_uframes_t frame = 0; frame < size; ++frame) {
        for (unsigned int channel = 0; channel < channels; ++channel) {
            const snd_pcm_channel_area_t* area = &areas[channel];
            int16_t sample;
            memcpy(&sample, (const char*)area->addr + (area->first + (offset + frame) * area->step) / 8,
                sizeof sample);
            if (sample != 0)
                return (snd_pcm_sframes_t)frame;
        }
    }
    return (snd_pcm_sframes_t)size;
}

/* Written beside its place and renamed, so that it is always whole. */
void sound_report_write(int64_t first_sound_ns)
{
    char path[PATH_MAX];
    char beside[PATH_MAX];
    report_path(path, ".json");
    report_path(beside, ".json.new");
    FILE* file = fopen(beside, "we");
    if (file == NULL)
        return;
    fprintf(file, "{\"first_sound_ns\":%lld}\n", (long long)first_sound_ns);
    if (fclose(file) != 0 || rename(beside, path) != 0)
        unlink(beside);
}

void sound_report_remove(void)
{
    char path[PATH_MAX];
    report_path(path, ".json");
    unlink(path);
}
