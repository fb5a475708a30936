// The instrument's wired interface: how it is, how it gets its address, whom it reaches.

import {form, outcome, runButton} from "../actions.js";
import {run} from "../api.js";
import {card, changed, choice, el, facts, field, printable, replace, stateMark, table} from "../dom.js";
import {resultView} from "../result.js";
import {get} from "../store.js";
import {byteCount, countText, unknown} from "../units.js";

export default class Network {
    id = "network";
    title = "Network";
    topics = ["instrument"];

    build() {
        this.state = el("p", {class: "said"});
        this.about = el("div", {});
        const place = outcome();
        return [el("div", {class: "columns"},
            card("Wired interface", this.state, this.about,
                el("div", {class: "row"},
                    runButton("Ask again", place, ["interface", "status"], {show: () => null})),
                place),
            el("div", {}, this.addressCard(), this.pingCard(), this.groupCard()))];
    }

    addressCard() {
        const how = choice([["dhcp", "by DHCP"], ["static", "fixed"]], "dhcp", {onchange: () => show()});
        const address = field("Address", el("input", {placeholder: "192.168.1.20/24", spellcheck: "false"}));
        const vlan = el("input", {type: "number", min: "1", max: "4094", placeholder: "none"});
        const ethtool = el("input", {placeholder: "-s eth0 speed 100 duplex full", spellcheck: "false"});
        const show = () => {
            address.hidden = how.value === "dhcp";
        };
        show();
        return card("Address", el("p", {class: "soft"}, "Setting it ends a measurement."),
            form([field("How", how), address, field("VLAN", vlan), field("ethtool first", ethtool)],
                "Set address", async () => {
                    const words = ["interface", how.value];
                    if (how.value === "static")
                        words.push(...address.querySelector("input").value.trim().split(/\s+/));
                    if (vlan.value) words.push("--vlan", vlan.value);
                    if (ethtool.value.trim()) words.push("--ethtool", ethtool.value.trim());
                    return resultView(await run(words));
                }));
    }

    pingCard() {
        const host = el("input", {required: true, placeholder: "192.168.1.1", spellcheck: "false"});
        const count = el("input", {type: "number", min: "1", max: "1000", value: "3"});
        return card("Ping",
            form([field("Host", host), field("Requests", count)], "Ping from the instrument",
                () => run(["ping", "--count", count.value, host.value.trim()]).then(pingView)));
    }

    groupCard() {
        const group = el("input", {required: true, placeholder: "239.0.0.1", spellcheck: "false"});
        return card("Multicast group",
            el("p", {class: "soft"},
                "Groups of earlier servers stay joined until they are left or the link goes down."),
            form([field("Group", group)], "Leave it",
                () => run(["server", "--leave", group.value.trim()]).then(resultView)));
    }

    update() {
        const it = get("instrument")?.interface;
        if (!changed(this, "interface", it)) return;
        const link = it && (it.link_detected ?? it.connected);
        replace(this.state,
            !it                ? stateMark("idle", "not known") :
                link === false ? stateMark("bad", "no link") :
                                 stateMark("good", "link"));
        const traffic = (part) => part
            && `${countText(part.packets)} packets, ${byteCount(part.bytes)}; ${
                   countText(part.errors)} errors, `
                +
                `${countText(part.dropped)} dropped, ${countText(part.overruns)} overruns`;
        replace(this.about,
            it ? facts([
                ["address", it.address], ["mask", it.mask], ["broadcast", it.broadcast],
                ["IPv6", (it.ipv6 ?? []).join(", ") || unknown], ["MAC address", it.mac],
                ["speed", it.speed_mbps ? `${it.speed_mbps} Mbit/s, ${it.duplex ?? ""} duplex` : unknown],
                [
                    "auto-negotiation",
                    it.auto_negotiation === null || it.auto_negotiation === undefined ? unknown :
                        it.auto_negotiation                                           ? "on" :
                                                                                        "off"
                ],
                ["port", it.port], ["MTU", it.mtu ? `${it.mtu} bytes` : unknown],
                ["flags", (it.flags ?? []).join(" ")], ["received", traffic(it.received)],
                ["sent", traffic(it.sent)]
            ]) :
                                          null);
    }
}

function pingView(answer) {
    const times = answer.round_trip_ms;
    return el("div", {},
        el("p", {},
            stateMark(answer.received === answer.transmitted ? "good" :
                    answer.received > 0                      ? "warn" :
                                                               "bad",
                `${answer.received} of ${answer.transmitted} answered`),
            ` ${printable(answer.host)}${answer.address ? ` (${printable(answer.address)})` : ""}`),
        times ? facts([
            ["shortest, mean, longest", `${times.shortest}, ${times.mean}, ${times.longest} ms`],
            ["deviation", `${times.deviation} ms`]
        ]) :
                null,
        table("Replies",
            [
                {title: "request", number: true}, {title: "time to live", number: true},
                {title: "round trip", number: true}
            ],
            (answer.replies ?? [])
                .map((reply) => [reply.sequence, reply.time_to_live, `${reply.round_trip_ms} ms`])));
}
