"""What each stream is made of: pictures, tones, codecs, rate and service names."""

NETWORK = {"id": 0xFF01, "original_id": 0xFF01, "stream_id": 1, "name": "Tessary Test Network", "coding": "iso6937"}

# Stream types of ISO/IEC 13818-1 table 2-34; 0x06 with a descriptor and 0x87 both stand for E-AC-3.
_TYPE = {"mpeg2video": 0x02, "mpeg4": 0x10, "libx264": 0x1B, "libx265": 0x24,
         "mp2": 0x03, "libmp3lame": 0x03, "aac": 0x0F, "ac3": 0x81, "eac3": 0x87}

# As what the PMT can announce a sound: stream type and descriptor (EN 300 468, 6.4.1 and annex D).
ANNOUNCED = {"ac4": (0x06, bytes.fromhex("7f021500"))}

_SEGMENTS = {1: "bc", 2: "abged", 3: "abgcd", 6: "afgcde", 7: "abc"}  # of a seven-segment digit, a on top, clockwise, g in the middle


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


def _program(number, name, coding, colour, hertz, service_type=0x01, **own):
    """`colour` None: no picture; `hertz` None: no sound. `own` "audio" stands in for the recipe's coder, "announced" names
    what the PMT says of the sound instead of what it is."""
    return {"number": number, "name": name, "coding": coding, "colour": colour, "hertz": hertz, "type": service_type, **own}


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

# What a multiplex carries besides television: radio in each coding, a picture without sound, and a sound that no receiver
# here decodes (layer 2 that calls itself AC-4, so that its bytes are there).
RADIO, RADIO_ADVANCED = 0x02, 0x0A
SERVICES = {
    "file": "services.ts", "seconds": 24, "size": "352x288", "muxrate": 4_000_000,
    "video": ["mpeg2video", "-b:v", "500k", "-maxrate", "600k", "-bufsize", "300k", "-g", "12", "-bf", "2"],
    "audio": ["mp2", "-b:a", "128k"],
    "provider": "",  # so that seven services fit one packet
    "programs": [_program(1, "Television", "iso6937", "red", 440),
                 _program(2, "Radio layer 2", "iso6937", None, 600, RADIO),
                 _program(3, "Radio AAC", "iso6937", None, 800, RADIO_ADVANCED, audio=["aac", "-b:a", "128k"]),
                 _program(4, "Radio AC-3", "iso6937", None, 1000, RADIO, audio=["ac3", "-b:a", "128k"]),
                 _program(5, "Radio E-AC-3", "iso6937", None, 1200, RADIO, audio=["eac3", "-b:a", "128k"]),
                 _program(6, "Picture only", "iso6937", "0x00C000", None),
                 _program(7, "Sound in AC-4", "iso6937", "blue", 1400, announced="ac4")],
}

# The demo's stream once more, inside T2-MI on PID 4096; made from the file `of`.
T2MI = [{"file": "demo-t2mi.ts", "of": "demo.ts", "plp": 1, "high_efficiency": True},
        {"file": "demo-t2mi-normal.ts", "of": "demo.ts", "plp": 1, "high_efficiency": False}]

ALL = [DEMO, SERVICES] + CODECS + T2MI


def _group(seconds, pictures):
    """A stream of each coding with groups of so many pictures, none longer or shorter, as a broadcaster sets them."""
    h265 = f"keyint={pictures}:min-keyint={pictures}:scenecut=0:open-gop=0:bframes=2:vbv-maxrate=3000:vbv-bufsize=1500"
    common = ["-g", str(pictures), "-bf", "2", "-sc_threshold"]
    coders = [("mpeg2", "MPEG-2", "720x576", ["mpeg2video", "-b:v", "2500k", "-maxrate", "3M", "-bufsize", "1200k",
                                              "-mpv_flags", "+strict_gop", *common, "1000000000"]),
              ("h264", "H.264", "1280x720", ["libx264", "-preset", "veryfast", "-b:v", "3M", "-maxrate", "3M", "-bufsize",
                                             "1500k", "-keyint_min", str(pictures), *common, "0"]),
              ("h265", "HEVC", "1280x720", ["libx265", "-preset", "ultrafast", "-b:v", "3M", "-x265-params",
                                            f"{h265}:log-level=error"])]
    return [{"file": f"zap-{name}-{seconds}s.ts", "seconds": 12, "size": size, "muxrate": 5_000_000, "video": video,
             "audio": ["mp2", "-b:a", "192k"],
             "programs": [_program(1, f"{title}, groups of {seconds} s", "iso6937", "0xC08000", 1000)]}
            for name, title, size, video in coders]


# For the time from "play" to picture and sound, which depends on how far apart the key pictures are; 12 pictures are 0.48 s.
ZAPPING = _group("0.5", 12) + _group("2", 50)


def with_bases(wanted):
    """`wanted` file names and those that they are made from."""
    bases = {recipe["of"] for recipe in ALL if recipe["file"] in wanted and "of" in recipe}
    return bases | set(wanted)


def coders(recipe, program):
    """(video, audio): the coder of each with its options, None where the program has none."""
    video = recipe["video"] if program["colour"] is not None else None
    audio = program.get("audio", recipe["audio"]) if program["hertz"] is not None else None
    return video, audio


def announced(recipe):
    """{program number: (stream type, descriptor)} of the programs whose PMT says something else of the sound."""
    return {program["number"]: ANNOUNCED[program["announced"]] for program in recipe["programs"] if "announced" in program}


def stream_types(recipe):
    """{program number: [stream type of video, of audio]} as the PMTs must say, without what a program does not have."""
    found = {}
    for program in recipe["programs"]:
        found[program["number"]] = [_TYPE[coder[0]] for coder in coders(recipe, program) if coder]
    for number, (stream_type, _) in announced(recipe).items():
        found[number][-1] = stream_type
    return found


def _inputs(recipe):
    """The sources' ffmpeg arguments, the maps and coders of the streams, and the programs' own, in the order of the programs:
    all pictures, then all sounds."""
    sources, streams, members = [], [], {program["number"]: [] for program in recipe["programs"]}
    for kind, letter in enumerate("va"):
        count = 0
        for program in recipe["programs"]:
            coder = coders(recipe, program)[kind]
            if coder is None:
                continue
            source = (picture(program["colour"], program["number"], recipe["size"], recipe["seconds"]) if letter == "v"
                      else tone(program["hertz"], recipe["seconds"]))
            members[program["number"]].append(len(sources))
            streams += ["-map", str(len(sources)), f"-c:{letter}:{count}", coder[0]]
            streams += [f"{word}:{count}" if word.endswith(f":{letter}") else word for word in coder[1:]]
            sources.append(["-f", "lavfi", "-i", source])
            count += 1
    programs = [f"title=S{number}:program_num={number}" + "".join(f":st={index}" for index in sorted(indices))
                for number, indices in members.items()]
    return sources, streams, programs


def ffmpeg_arguments(recipe, out):
    """The ffmpeg call (without the program's name) that writes the multiplex to `out`."""
    sources, streams, programs = _inputs(recipe)
    arguments = ["-hide_banner", "-nostdin", "-loglevel", "error", "-y"]
    for source in sources:
        arguments += source
    arguments += streams
    for program in programs:
        arguments += ["-program", program]
    arguments += ["-pix_fmt", "yuv420p", "-ac", "2"]
    return arguments + ["-muxrate", str(recipe["muxrate"]), "-mpegts_flags", "+nit",
                        "-mpegts_transport_stream_id", str(NETWORK["stream_id"]),
                        "-mpegts_original_network_id", str(NETWORK["original_id"]), "-f", "mpegts", str(out)]
