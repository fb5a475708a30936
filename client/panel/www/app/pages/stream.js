// What is in the stream: server, scan, services with their PIDs, network, and tables byte by byte.

import {button, form, outcome, runButton} from "../actions.js";
import {run} from "../api.js";
import {card, changed, choice, classOf, el, facts, field, printable, replace, stateMark, table} from "../dom.js";
import {kindOfService} from "../status.js";
import {get} from "../store.js";
import {TableView} from "../tableview.js";
import {countText, pidText, timeText, unknown} from "../units.js";

const protocols =
    [["udp", "UDP"], ["rtp", "RTP"], ["udp+t2mi", "T2-MI over UDP"], ["rtp+t2mi", "T2-MI over RTP"]];
const sources =
    [["ip", "IP, by the server"], ["fpga", "FPGA (front end)"], ["recording", "recording (memory card)"]];

/// "rtp+t2mi://239.0.0.1:1234?pid=4096&plp=1" by its parts; null of what is none.
export function partsOf(url) {
    const found = /^(udp|rtp)(\+t2mi)?:\/\/([^:/]+):(\d+)(?:\?pid=(\d+)&plp=(\d+))?$/.exec(url ?? "");
    return found && {
        protocol: found[1] + (found[2] ?? ""),
        address: found[3],
        port: found[4],
        pid: found[5],
        plp: found[6]
    };
}

export default class Stream {
    id = "stream";
    title = "Stream";
    topics = ["stream", "play", "measurement", "instrument"];
    open = new Set(); // services whose PIDs are shown

    build() {
        this.services = el("div", {});
        this.network = el("div", {});
        this.playOutcome = outcome();
        this.tables = new TableView();
        return [
            el("div", {class: "columns"}, this.serverCard(), this.scanCard()),
            card("Services", this.playOutcome, this.services), card("Network", this.network),
            this.tables.element
        ];
    }

    serverCard() {
        this.protocol = choice(protocols, "udp", {onchange: () => this.showT2()});
        this.address =
            el("input", {value: "239.0.0.1", required: true, spellcheck: "false", autocomplete: "off"});
        this.port = el("input", {type: "number", min: "1", max: "65535", value: "1234", required: true});
        this.pid = el("input", {type: "number", min: "0", max: "8191", value: "4096"});
        this.plp = el("input", {type: "number", min: "0", max: "255", value: "1"});
        this.t2Fields = [field("T2-MI PID", this.pid), field("PLP", this.plp)];
        const place = outcome();
        const onlySet = button("Only set it", place, async () => {
            await run(["server", this.url()]);
            return el("p", {class: "soft"}, "set; the next scan or play uses it");
        });
        const it = card("Stream server",
            form(
                [
                    field("Protocol", this.protocol), field("Address", this.address),
                    field("Port", this.port), ...this.t2Fields
                ],
                "Set and scan", () => this.scan(this.url()), {place, more: onlySet}));
        this.showT2();
        return it;
    }

    showT2() {
        for (const each of this.t2Fields) each.hidden = !this.protocol.value.endsWith("t2mi");
    }

    url() {
        const t2 = this.protocol.value.endsWith("t2mi") ? `?pid=${this.pid.value}&plp=${this.plp.value}` : "";
        return `${this.protocol.value}://${this.address.value.trim()}:${this.port.value}${t2}`;
    }

    scanCard() {
        this.source = choice(sources, "ip");
        this.wait = el("input", {type: "number", min: "1", max: "120", value: "12"});
        this.noPids = el("input", {type: "checkbox"});
        this.scanPlace = outcome();
        return card("Scan",
            form(
                [
                    field("Source", this.source), field("Seconds to wait for tables", this.wait),
                    el("label", {class: "check whole"}, this.noPids,
                        "without PIDs (quicker: no program is played for a moment)")
                ],
                "Scan", () => this.scan(), {
                    place: this.scanPlace,
                    more:
                        runButton("What is known, undisturbed", this.scanPlace, ["info"], {show: () => null})
                }));
    }

    /// Of this server, else of the one that is set.
    async scan(server) {
        const words = ["scan", ...(server ? [server] : []), "--wait", this.wait.value];
        if (this.source.value !== "ip") words.push("--source", this.source.value);
        if (this.noPids.checked) words.push("--no-pids");
        const found = await run(words);
        return el("p", {}, stateMark("good", `${found.services?.length ?? 0} services`));
    }

    update() {
        const parts = partsOf(get("instrument")?.server);
        if (parts && changed(this, "server", parts)) this.fill(parts);
        const playing = get("measurement")?.measuring ? null : get("play")?.program;
        if (changed(this, "services", [get("stream"), playing])) this.showServices(get("stream"), playing);
        if (changed(this, "network", get("stream")?.network)) this.showNetwork(get("stream")?.network);
        this.tables.update();
    }

    fill(parts) {
        this.protocol.value = parts.protocol;
        this.address.value = parts.address;
        this.port.value = parts.port;
        if (parts.pid) this.pid.value = parts.pid;
        if (parts.plp) this.plp.value = parts.plp;
        this.showT2();
    }

    showServices(stream, playing) {
        if (!stream) {
            replace(this.services, el("p", {class: "soft"}, "Nothing is known of the stream yet: scan it."));
            return;
        }
        const columns = [
            {title: "", spoken: "PIDs"}, {title: "channel", number: true, wideOnly: true},
            {title: "service", number: true}, {title: "name"}, {title: "provider", wideOnly: true},
            {title: "what it is", wideOnly: true}, {title: "running", wideOnly: true},
            {title: "scrambled", wideOnly: true}, {title: "", spoken: "play"}
        ];
        const about = [
            `transport stream ${stream.transport_stream_id ?? unknown}`,
            `original network ${stream.original_network_id ?? unknown}`,
            stream.complete === false ? "SDT incomplete" : null,
            stream.time ? `scanned ${timeText(stream.time)}` : null
        ].filter(Boolean).join(", ");
        replace(this.services, el("p", {class: "soft"}, about),
            table("Services", columns,
                this.rowsOf(stream).flatMap((service) => this.serviceRows(service, playing, columns)),
                {class: "pinned"}));
    }

    /// The services of the SDT, and the programs that no SDT names.
    rowsOf(stream) {
        const named = new Set((stream.services ?? []).map((service) => service.service_id));
        const others =
            (stream.programs ?? []).filter((program) => !named.has(program.program)).map((program) => ({
                service_id: program.program,
                name: "",
                provider: "",
                type_name: "not in the SDT",
                program
            }));
        return [...(stream.services ?? []), ...others];
    }

    serviceRows(service, playing, columns) {
        const id = service.service_id;
        const name = printable(service.name || `service ${id}`);
        const open = this.open.has(id);
        const toggle = el("button", {
            type: "button",
            class: "small",
            "aria-expanded": String(open),
            "aria-label": `PIDs of ${name}`,
            "data-key": `pids-${id}`,
            onclick: () => {
                if (!this.open.delete(id)) this.open.add(id);
                this.showServices(get("stream"), playing);
            }
        },
            open ? "▾" : "▸");
        const plays = playing === id;
        const cells = [
            toggle, service.logical_channel ?? unknown, id, el("b", {}, name),
            printable(service.provider || unknown),
            [printable(service.type_name || unknown), el("small", {}, ` ${kindOfService(service)}`)],
            printable(service.running_status_name ?? unknown),
            service.scrambled ? stateMark("warn", "yes") : "no",
            plays ? stateMark("good", "plays") : runButton("Play", this.playOutcome, ["play", id], {
                show: () => null,
                class: "small",
                "aria-label": `Play ${name}`,
                "data-key": `play-${id}`
            })
        ];
        const row = el("tr", {class: plays ? "chosen" : undefined},
            cells.map((cell, at) => el("td", {class: classOf(columns[at])}, cell)));
        return open ?
            [
                row,
                el("tr", {class: "inner"},
                    el("td", {colspan: String(columns.length)}, el("p", {class: "soft"}, aboutText(service)),
                        pidsView(service.program, name)))
            ] :
            [row];
    }

    showNetwork(network) {
        if (!network) {
            replace(this.network, el("p", {class: "soft"}, "No NIT is known."));
            return;
        }
        replace(this.network, facts([
            ["network", `${printable(network.name)} (${network.network_id})`],
            ["complete", network.complete ? "yes" : "sections are missing"]
        ]),
            table("Transport streams of the network",
                [
                    {title: "transport stream", number: true}, {title: "original network", number: true},
                    {title: "delivery"}, {title: "services"}
                ],
                (network.transport_streams ?? [])
                    .map(
                        (ts) => [ts.transport_stream_id, ts.original_network_id,
                            el("div", {},
                                (ts.delivery ?? []).map((delivery) => el("div", {}, deliveryText(delivery)))),
                            servicesText(ts)])));
    }
}

function servicesText(ts) {
    const channel = new Map((ts.logical_channels ?? []).map((each) => [each.service_id, each.number]));
    return (ts.services ?? [])
               .map(({service_id: id}) => (channel.has(id) ? `${id} (channel ${channel.get(id)})` : id))
               .join(", ")
        || unknown;
}

/// "DVB-T2, 514 MHz, 8 MHz wide, 256-QAM 3/5".
export function deliveryText(delivery) {
    const megahertz = (hertz) => `${(hertz / 1e6).toFixed(3).replace(/\.?0+$/, "")} MHz`;
    return [
        delivery.system, (delivery.frequencies_hz ?? []).map(megahertz).join(" + "),
        delivery.bandwidth_hz && `${megahertz(delivery.bandwidth_hz)} wide`,
        delivery.symbol_rate && `${countText(delivery.symbol_rate)} symbols/s`, delivery.modulation,
        delivery.code_rate && `code rate ${delivery.code_rate}`,
        delivery.guard_interval && `guard ${delivery.guard_interval}`, delivery.transmission_mode,
        delivery.polarization, delivery.orbital_position,
        delivery.roll_off && `roll-off ${delivery.roll_off}`,
        delivery.plp !== null && delivery.plp !== undefined && `PLP ${delivery.plp}`
    ].filter(Boolean)
        .map(printable)
        .join(", ");
}

/// What a narrow window has no column for.
function aboutText(service) {
    return [
        service.provider, service.type_name, service.logical_channel && `channel ${service.logical_channel}`,
        service.running_status_name, service.scrambled ? "scrambled" : "clear"
    ].filter(Boolean)
        .map(printable)
        .join(", ");
}

function languagesText(stream) {
    return (stream.languages ?? []).map(({code, use}) => (use ? `${code} (${use})` : code)).join(", ")
        || unknown;
}

function pidsView(program, name) {
    if (!program) return el("p", {class: "soft"}, "Its PMT is not known.");
    const systems =
        (program.conditional_access ?? [])
            .map(
                (each) =>
                    `${each.system || `0x${each.system_id.toString(16)}`}, ECM PID ${pidText(each.ecm_pid)}`);
    return el("div", {},
        el("p", {class: "soft"},
            [
                `PCR PID ${program.pcr_pid === null ? "none" : pidText(program.pcr_pid)}`,
                ...systems.map(printable)
            ].join("; ")),
        table(`PIDs of ${name}`,
            [
                {title: "PID", number: true}, {title: "type", number: true}, {title: "what it is"},
                {title: "languages"}, {title: "descriptors"}
            ],
            (program.streams ?? [])
                .map((stream) => [pidText(stream.pid), `0x${stream.type.toString(16).padStart(2, "0")}`,
                         printable(stream.type_name), printable(languagesText(stream)),
                         el("span", {class: "mono"},
                             (stream.descriptors ?? [])
                                     .map(({tag, data}) => `${tag.toString(16).padStart(2, "0")}:${data}`)
                                     .join(" ")
                                 || unknown)])));
}
