// The instrument's sound: endless 16-bit samples out of a request, measured always and played when wanted.

import {printable} from "./dom.js";

const levelMs = 100;
const ahead = 0.15;  // seconds of sound in hand, against the network's unevenness
const mostAhead = 1; // what is later than this is dropped: the sound stays with the picture

export class SoundPlayer {
    /// `onLevels` gets [{peak}] for each channel, 0 to 1; `onState` a sentence.
    constructor(onLevels, onState) { Object.assign(this, {onLevels, onState, listening: false}); }

    async start() {
        this.stop();
        const abort = new AbortController();
        this.abort = abort;
        while (!abort.signal.aborted) {
            try {
                await this.follow(await fetch("/api/sound", {signal: abort.signal}), abort.signal);
            } catch { /* aborted, or lost: below */
            }
            if (abort.signal.aborted) return;
            this.onState("No sound comes at the moment.");
            await new Promise((resolve) => {
                setTimeout(resolve, 2000);
            });
        }
    }

    stop() {
        this.abort?.abort();
        this.listen(false);
    }

    listen(on, volume = 0.7) {
        this.listening = on;
        if (on) {
            this.context ??= new AudioContext();
            this.context.resume();
            this.gain ??= this.context.createGain();
            this.gain.connect(this.context.destination);
            this.setVolume(volume);
            this.next = 0;
        } else
            this.context?.suspend();
    }

    setVolume(volume) {
        if (this.gain) this.gain.gain.value = volume;
    }

    async follow(response, signal) {
        if (!response.ok || !response.body) throw new Error("no sound");
        const rate = Number(response.headers.get("X-Rate"));
        const channels = Number(response.headers.get("X-Channels"));
        this.onState(printable(`${rate} Hz, ${
            channels === 1     ? "mono" :
                channels === 2 ? "stereo" :
                                 `${channels} channels`}`));
        const reader = response.body.getReader();
        let rest = new Uint8Array(0);
        while (!signal.aborted) {
            const {value, done} = await reader.read();
            if (done) return;
            const all = new Uint8Array(rest.length + value.length);
            all.set(rest);
            all.set(value, rest.length);
            const whole = all.length - (all.length % (2 * channels));
            rest = all.slice(whole);
            if (whole > 0) this.take(new DataView(all.buffer, 0, whole), channels, rate);
        }
    }

    take(view, channels, rate) {
        const frames = view.byteLength / (2 * channels);
        const sound = Array.from({length: channels}, () => new Float32Array(frames));
        for (let frame = 0; frame < frames; frame += 1)
            for (let channel = 0; channel < channels; channel += 1)
                sound[channel][frame] = view.getInt16(2 * (frame * channels + channel), true) / 32768;
        this.measure(sound);
        if (this.listening) this.play(sound, rate);
    }

    measure(sound) {
        this.peaks =
            sound.map((samples, at) => samples.reduce(
                          (most, sample) => Math.max(most, Math.abs(sample)), this.peaks?.[at] ?? 0));
        const now = performance.now();
        if (now - (this.measured ?? 0) < levelMs) return;
        this.measured = now;
        this.onLevels(this.peaks.map((peak) => ({peak})));
        this.peaks = undefined;
    }

    play(sound, rate) {
        const buffer = this.context.createBuffer(sound.length, sound[0].length, rate);
        sound.forEach((samples, channel) => buffer.copyToChannel(samples, channel));
        const now = this.context.currentTime;
        if (this.next < now) this.next = now + ahead;
        if (this.next > now + mostAhead) return;
        const source = this.context.createBufferSource();
        source.buffer = buffer;
        source.connect(this.gain);
        source.start(this.next);
        this.next += buffer.duration;
    }
}
