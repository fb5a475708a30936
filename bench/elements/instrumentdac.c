/*
 * ALSA playback PCM of type "instrumentdac": stands in for the instrument's sound converter.
 *
 * It takes 16 bit stereo and consumes it at the sample rate in real time, so that a player sees the clock,
 * the fill level and the underruns of a real card. The samples themselves are dropped: put it below ALSA's
 * own "file" PCM to keep them (see asound.conf). The position follows CLOCK_MONOTONIC; a timer descriptor
 * wakes who waits for room. soundreport.h tells when the first sound came out.
 */
#include "soundreport.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#define NS_PER_S 1000000000LL

struct instrument_dac
{
    snd_pcm_ioplug_t io;
    int timer_fd;
    int64_t start_ns; /* when consumption began; -1 while it stands still */
    snd_pcm_uframes_t start_frame; /* position at start_ns */
    snd_pcm_uframes_t avail_min;
    snd_pcm_uframes_t boundary;
    int stops_on_underrun;
    int64_t first_sound; /* position of the first sample that is no silence; -1 before it came */
    int reported; /* its time stands in the report */
};

static int64_t now_ns(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * NS_PER_S + now.tv_nsec;
}

/* Frames the converter's clock has asked for since prepare; whole seconds apart, so that nothing overflows.
 */
static snd_pcm_uframes_t clocked_frames(const struct instrument_dac* dac)
{
    if (dac->start_ns < 0)
        return dac->io.hw_ptr;
    const int64_t elapsed = now_ns() - dac->start_ns;
    const int64_t frames = elapsed / NS_PER_S * dac->io.rate + elapsed % NS_PER_S * dac->io.rate / NS_PER_S;
    return dac->start_frame + (snd_pcm_uframes_t)frames;
}

/* Sets the timer to a time of CLOCK_MONOTONIC; 0 keeps it from firing. */
static int set_alarm(struct instrument_dac* dac, int64_t at_ns)
{
    const struct itimerspec spec = {.it_value = {.tv_sec = at_ns / NS_PER_S, .tv_nsec = at_ns % NS_PER_S}};
    return timerfd_settime(dac->timer_fd, TFD_TIMER_ABSTIME, &spec, NULL) < 0 ? -errno : 0;
}

/* How far the clock has to come until there is room for the wanted frames, or until all is played when
 * draining. */
static snd_pcm_uframes_t awaited_frame(const struct instrument_dac* dac, snd_pcm_uframes_t appl_ptr)
{
    const snd_pcm_uframes_t end = appl_ptr + dac->avail_min;
    if (dac->io.state == SND_PCM_STATE_DRAINING)
        return appl_ptr;
    if (end <= dac->io.buffer_size)
        return 0;
    return end - dac->io.buffer_size < appl_ptr ? end - dac->io.buffer_size : appl_ptr;
}

/* Makes the descriptor readable when a waiting player has something to do: at once, at a time to come, or
 * never as long as a full buffer is not started. `appl_ptr` is the end of what was written. */
static int arm(struct instrument_dac* dac, snd_pcm_uframes_t appl_ptr)
{
    const int64_t at_once = 1;
    const snd_pcm_uframes_t awaited = awaited_frame(dac, appl_ptr);
    if (dac->io.state == SND_PCM_STATE_XRUN || clocked_frames(dac) >= awaited)
        return set_alarm(dac, at_once);
    if (dac->start_ns < 0)
        return set_alarm(dac, 0);
    const int64_t frames = (int64_t)(awaited - dac->start_frame);
    const int64_t rate = dac->io.rate;
    return set_alarm(
        dac, dac->start_ns + frames / rate * NS_PER_S + (frames % rate * NS_PER_S + rate - 1) / rate);
}

/* Tells when the first sound comes out, as soon as the clock runs and so the time is known. */
static void report_first_sound(struct instrument_dac* dac)
{
    if (dac->reported || dac->first_sound < 0 || dac->start_ns < 0)
        return;
    const int64_t frames = dac->first_sound - (int64_t)dac->start_frame;
    const int64_t rate = dac->io.rate;
    sound_report_write(dac->start_ns + frames / rate * NS_PER_S + frames % rate * NS_PER_S / rate);
    dac->reported = 1;
}

static int dac_prepare(snd_pcm_ioplug_t* io)
{
    struct instrument_dac* dac = io->private_data;
    dac->start_ns = -1;
    dac->start_frame = 0;
    dac->first_sound = -1; /* what was not played by now will not be */
    return arm(dac, io->appl_ptr);
}

static int dac_start(snd_pcm_ioplug_t* io)
{
    struct instrument_dac* dac = io->private_data;
    dac->start_frame = io->hw_ptr;
    dac->start_ns = now_ns();
    report_first_sound(dac);
    return arm(dac, io->appl_ptr);
}

static int dac_stop(snd_pcm_ioplug_t* io)
{
    struct instrument_dac* dac = io->private_data;
    dac->start_ns = -1;
    return set_alarm(dac, 0);
}

static snd_pcm_sframes_t dac_pointer(snd_pcm_ioplug_t* io)
{
    const struct instrument_dac* dac = io->private_data;
    snd_pcm_uframes_t frames = clocked_frames(dac);
    if (frames > io->appl_ptr) {
        if (io->state == SND_PCM_STATE_DRAINING)
            frames = io->appl_ptr; /* the last frame is out: nothing is missing */
        else if (dac->stops_on_underrun)
            return -EPIPE;
    }
    return (snd_pcm_sframes_t)(dac->boundary > 0 ? frames % dac->boundary : frames);
}

static snd_pcm_sframes_t dac_transfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
    snd_pcm_uframes_t offset, snd_pcm_uframes_t size)
{
    struct instrument_dac* dac = io->private_data;
    if (dac->first_sound < 0) {
        const snd_pcm_sframes_t silent = silent_frames(areas, io->channels, offset, size);
        if (silent < (snd_pcm_sframes_t)size)
            dac->first_sound = (int64_t)io->appl_ptr + silent;
        report_first_sound(dac);
    }
    const int error = arm(dac, io->appl_ptr + size); /* the caller moves appl_ptr afterwards */
    return error < 0 ? error : (snd_pcm_sframes_t)size;
}

static int dac_sw_params(snd_pcm_ioplug_t* io, snd_pcm_sw_params_t* params)
{
    struct instrument_dac* dac = io->private_data;
    snd_pcm_uframes_t stop_threshold = 0;
    snd_pcm_sw_params_get_avail_min(params, &dac->avail_min);
    snd_pcm_sw_params_get_boundary(params, &dac->boundary);
    snd_pcm_sw_params_get_stop_threshold(params, &stop_threshold);
    dac->stops_on_underrun = stop_threshold < dac->boundary;
    return 0;
}

static int dac_poll_descriptors_count(snd_pcm_ioplug_t* io)
{
    (void)io;
    return 1;
}

static int dac_poll_descriptors(snd_pcm_ioplug_t* io, struct pollfd* fds, unsigned int count)
{
    struct instrument_dac* dac = io->private_data;
    if (count < 1)
        return -EINVAL;
    const int error =
        arm(dac, io->appl_ptr); /* draining began, or avail_min changed, since it was last set */
    fds[0].fd = dac->timer_fd;
    fds[0].events = POLLIN;
    return error < 0 ? error : 1;
}

static int dac_poll_revents(
    snd_pcm_ioplug_t* io, struct pollfd* fds, unsigned int count, unsigned short* revents)
{
    struct instrument_dac* dac = io->private_data;
    (void)fds;
    if (count != 1)
        return -EINVAL;
    *revents = 0;
    if (io->state == SND_PCM_STATE_XRUN)
        *revents = POLLERR;
    else if (clocked_frames(dac) >= awaited_frame(dac, io->appl_ptr))
        *revents = POLLOUT; /* the descriptor stays readable until something is written */
    else
        return arm(dac, io->appl_ptr);
    return 0;
}

static int dac_close(snd_pcm_ioplug_t* io)
{
    struct instrument_dac* dac = io->private_data;
    close(dac->timer_fd);
    free(dac);
    return 0;
}

static const snd_pcm_ioplug_callback_t dac_callbacks = {
    .start = dac_start,
    .stop = dac_stop,
    .pointer = dac_pointer,
    .transfer = dac_transfer,
    .close = dac_close,
    .prepare = dac_prepare,
    .sw_params = dac_sw_params,
    .poll_descriptors_count = dac_poll_descriptors_count,
    .poll_descriptors = dac_poll_descriptors,
    .poll_revents = dac_poll_revents,
};

static int set_abilities(snd_pcm_ioplug_t* io)
{
    static const unsigned int accesses[] = {SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_ACCESS_MMAP_INTERLEAVED};
    static const unsigned int formats[] = {SND_PCM_FORMAT_S16_LE};
    int error = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_ACCESS, 2, accesses);
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_FORMAT, 1, formats);
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_CHANNELS, 2, 2);
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_RATE, 8000, 192000);
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 256, 256 * 1024);
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, 512, 1024 * 1024);
    if (error >= 0)
        error = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIODS, 2, 1024);
    return error;
}

static int check_configuration(snd_config_t* conf)
{
    snd_config_iterator_t entry;
    snd_config_iterator_t next;
    snd_config_for_each(entry, next, conf)
    {
        const char* id = NULL;
        if (snd_config_get_id(snd_config_iterator_entry(entry), &id) < 0)
            continue;
        if (strcmp(id, "type") != 0 && strcmp(id, "comment") != 0 && strcmp(id, "hint") != 0) {
            SNDERR("instrumentdac has no field \"%s\"; remove it", id);
            return -EINVAL;
        }
    }
    return 0;
}

static int open_dac(snd_pcm_t** pcmp, const char* name, snd_pcm_stream_t stream, int mode)
{
    struct instrument_dac* dac = calloc(1, sizeof *dac);
    if (dac == NULL)
        return -ENOMEM;
    dac->start_ns = -1;
    dac->avail_min = 1;
    dac->first_sound = -1;
    dac->stops_on_underrun = 1;
    dac->timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (dac->timer_fd < 0) {
        const int error = -errno;
        free(dac);
        return error;
    }
    dac->io.version = SND_PCM_IOPLUG_VERSION;
    dac->io.name = "Sound converter of the instrument";
    dac->io.callback = &dac_callbacks;
    dac->io.private_data = dac;
    dac->io.poll_fd = dac->timer_fd;
    dac->io.poll_events = POLLIN;
    dac->io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    int error = snd_pcm_ioplug_create(&dac->io, name, stream, mode);
    if (error < 0) {
        close(dac->timer_fd);
        free(dac);
        return error;
    }
    error = set_abilities(&dac->io);
    if (error < 0) {
        snd_pcm_ioplug_delete(&dac->io); /* calls dac_close() */
        return error;
    }
    sound_report_remove();
    *pcmp = dac->io.pcm;
    return 0;
}

SND_PCM_PLUGIN_DEFINE_FUNC(instrumentdac)
{
    (void)root;
    if (stream != SND_PCM_STREAM_PLAYBACK) {
        SNDERR("instrumentdac only plays; it can not record");
        return -EINVAL;
    }
    const int error = check_configuration(conf);
    return error < 0 ? error : open_dac(pcmp, name, stream, mode);
}

/* The macro ends its declaration itself. */
SND_PCM_PLUGIN_SYMBOL(instrumentdac)
