"""What each stream is made of: pictures, tones, codecs, rate and service names."""

NETWORK = {"id": 0xFF01, "original_id": 0xFF01, "stream_id": 1, "name": "Tessary Test Network", "coding": "iso6937"}

# Stream types of ISO/IEC 13818-1 table 2-34; 0x06 with a descriptor and 0x87 both stand for E-AC-3.
_TYPE = {"mpeg2video": 0x02, "mpeg4": 0x10, "libx264": 0x1B, "libx265": 0x24,
         "mp2": 0x03, "libmp3lame": 0x03, "aac": 0x0F, "ac3": 0x81, "eac3": 0x87}

_SEGMENTS = {1: "bc", 2: "abged", 3: "abgcd"}  # of a seven-segment digit, a on top, clockwise, g in the middle


def _digit_boxes(number, width, height):
    """drawbox filters for a white seven-segment digit in the middle of the picture; needs no font."""
    tall, thick = height // 2, height // 14
    half, wide = tall // 2, height // 4
    left, top = (width - wide) // 2, (height - tall) // 2
    boxes = {"a": (left, top, wide, thick), "d": (left, top + tall - thick, wide, thick),
             "g": (left, top + half - thick // 2, wide, thick),
             "f": (left, top, thick, half), "e": (left, top + half, thick, half),
             "b": (left + wide - thick, top, thick, half), "c": (left + wide - thick, top + half, thick, half)}
    return [f"drawbox=x={x}:y={y}:w={w}:h={h}:color=white:t=fill"
            for x, y, w, h in (boxes[name] for name in _SEGMENTS[number])]


def _second_boxes(width, height):
    """A row of twelve marks along the bottom, one more lit each second: a person sees that the picture moves."""
    step, side = width // 14, width // 28
    return [f"drawbox=x={step * (k + 1)}:y={height - 2 * side}:w={side}:h={side}:color=white:t=fill"
            f":enable='gte(mod(t,12),{k})'" for k in range(12)]


def picture(colour, number, size, seconds):
    """ffmpeg input of a noisy colour field with a big digit; the noise gives the coder real work."""
    width, height = (int(part) for part in size.split("x"))
    parts = [f"color=c={colour}:s={size}:r=25:d={seconds}", "noise=alls=10:allf=t:all_seed=7"]
    return ",".join(parts + _digit_boxes(number, width, height) + _second_boxes(width, height))


def tone(hertz, seconds):
    """ffmpeg input of a sine tone at 48 kHz."""
    return f"sine=f={hertz}:r=48000:d={seconds}"


def _program(number, name, coding, colour, hertz, service_type=0x01):
    return {"number": number, "name": name, "coding": coding, "colour": colour, "hertz": hertz, "type": service_type}


# 24 s are a whole number of pictures (40 ms) and of layer 2 audio frames (24 ms), so a repetition joins cleanly.
DEMO = {
    "file": "demo.ts", "seconds": 24, "size": "720x576", "muxrate": 5_000_000,
    "video": ["mpeg2video", "-b:v", "1000k", "-maxrate", "1100k", "-bufsize", "500k", "-g", "12", "-bf", "2",
              "-aspect", "4:3"],
    "audio": ["mp2", "-b:a", "128k"],
    "programs": [_program(1, "Café Tessary", "latin1", "red", 440),
                 _program(2, "Tessary Grün", "iso6937", "0x00C000", 1000),
                 _program(3, "Tessary Blå", "utf8", "blue", 1700)],
}


def _single(file, name, size, video, audio, muxrate, service_type):
    return {"file": file, "seconds": 6, "size": size, "muxrate": muxrate, "video": video, "audio": audio,
            "programs": [_program(1, name, "iso6937", "0xC08000", 1000, service_type)]}


# One program each, for what the decoder information says about codecs. VP9 is left out: no stream type or descriptor
# carries it in a transport stream, and a demultiplexer cannot tell what it is.
CODECS = [
    _single("h265-eac3.ts", "H.265 and E-AC-3", "1920x1080",
            ["libx265", "-preset", "ultrafast", "-x265-params", "keyint=25:log-level=error", "-b:v", "3M"],
            ["eac3", "-b:a", "192k"], 8_000_000, 0x1F),
    _single("h264-aac.ts", "H.264 and AAC", "1280x720",
            ["libx264", "-preset", "ultrafast", "-g", "25", "-b:v", "2M", "-maxrate", "2M", "-bufsize", "1M"],
            ["aac", "-b:a", "128k"], 6_000_000, 0x19),
    _single("h264-ac3.ts", "H.264 and AC-3", "1280x720",
            ["libx264", "-preset", "ultrafast", "-g", "25", "-b:v", "2M", "-maxrate", "2M", "-bufsize", "1M"],
            ["ac3", "-b:a", "192k"], 6_000_000, 0x19),
    _single("mpeg4-mp3.ts", "MPEG-4 Visual and layer 3", "720x576",
            ["mpeg4", "-b:v", "1M", "-maxrate", "1500k", "-bufsize", "1M", "-g", "25"],
            ["libmp3lame", "-b:a", "128k"], 4_000_000, 0x01),
]

# The demo's stream once more, inside T2-MI on PID 4096; made from the file `of`.
T2MI = [{"file": "demo-t2mi.ts", "of": "demo.ts", "plp": 1, "high_efficiency": True},
        {"file": "demo-t2mi-normal.ts", "of": "demo.ts", "plp": 1, "high_efficiency": False}]

ALL = [DEMO] + CODECS + T2MI


def with_bases(wanted):
    """`wanted` file names and those that they are made from."""
    bases = {recipe["of"] for recipe in ALL if recipe["file"] in wanted and "of" in recipe}
    return bases | set(wanted)


def stream_types(recipe):
    """{program number: [stream type of video, of audio]} as the PMTs must say."""
    types = [_TYPE[recipe["video"][0]], _TYPE[recipe["audio"][0]]]
    return {program["number"]: types for program in recipe["programs"]}


def ffmpeg_arguments(recipe, out):
    """The ffmpeg call (without the program's name) that writes the multiplex to `out`."""
    programs, count = recipe["programs"], len(recipe["programs"])
    arguments = ["-hide_banner", "-nostdin", "-loglevel", "error", "-y"]
    for program in programs:
        arguments += ["-f", "lavfi", "-i",
                      picture(program["colour"], program["number"], recipe["size"], recipe["seconds"])]
    for program in programs:
        arguments += ["-f", "lavfi", "-i", tone(program["hertz"], recipe["seconds"])]
    for index in range(count):
        arguments += ["-map", f"{index}:v", "-map", f"{count + index}:a"]
    for index, program in enumerate(programs):
        arguments += ["-program", f"title=S{program['number']}:program_num={program['number']}"
                                  f":st={2 * index}:st={2 * index + 1}"]
    arguments += ["-c:v", *recipe["video"], "-pix_fmt", "yuv420p", "-c:a", *recipe["audio"], "-ac", "2"]
    return arguments + ["-muxrate", str(recipe["muxrate"]), "-mpegts_flags", "+nit",
                        "-mpegts_transport_stream_id", str(NETWORK["stream_id"]),
                        "-mpegts_original_network_id", str(NETWORK["original_id"]), "-f", "mpegts", str(out)]
