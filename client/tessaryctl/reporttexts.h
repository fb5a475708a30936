#pragma once

/// What stands in every page of a measurement log: how it looks, and how it is read.
namespace tessary::ctl {

inline constexpr const char* reportStyleSheet = R"(
:root{color-scheme:light dark;--page:#fff;--text:#1d2733;--soft:#5b6875;--line:#d9dfe5;--tile:#f5f7f9;
--good:#1a7f4b;--bad:#c22f2f;--warn:#a86400;--blue:#1f63b5;--teal:#0c8a86;--violet:#7a4fc0;--grey:#8792a0}
@media (prefers-color-scheme:dark){:root{--page:#14191f;--text:#e4e9ee;--soft:#9aa7b4;--line:#323b46;--tile:#1d242c;
--good:#4cc38a;--bad:#ff6b6b;--warn:#e8a54b;--blue:#6aa9f4;--teal:#4cc7c2;--violet:#b392f0;--grey:#7d8896}}
@media print{:root{color-scheme:light;--page:#fff;--text:#000;--soft:#444;--line:#ccc;--tile:#fff;--good:#1a7f4b;
--bad:#c22f2f;--warn:#a86400;--blue:#1f63b5;--teal:#0c8a86;--violet:#7a4fc0;--grey:#8792a0}
*{print-color-adjust:exact;-webkit-print-color-adjust:exact}main{max-width:none;padding:0}}
@page{size:A4;margin:14mm}
*{box-sizing:border-box}
body{margin:0;background:var(--page);color:var(--text);font:15px/1.5 system-ui,"Segoe UI","DejaVu Sans",sans-serif}
main{max-width:1080px;margin:0 auto;padding:28px 24px 48px}
h1{font-size:25px;line-height:1.25;margin:0 0 4px;letter-spacing:-.01em}
h2{font-size:17px;margin:34px 0 6px;padding-bottom:5px;border-bottom:1px solid var(--line)}
p{margin:4px 0}.soft{color:var(--soft)}
.facts{display:grid;grid-template-columns:max-content 1fr;gap:2px 18px;margin:14px 0 0}
.facts dt{color:var(--soft)}.facts dd{margin:0;overflow-wrap:anywhere}
.verdict{margin:18px 0 14px;padding:12px 16px;border-left:5px solid var(--good);background:var(--tile);font-weight:600}
.verdict.bad{border-color:var(--bad)}
.tiles{display:grid;grid-template-columns:repeat(4,1fr);gap:10px}
.tile{background:var(--tile);border:1px solid var(--line);border-radius:6px;padding:10px 13px;break-inside:avoid}
.tile b{display:block;font-size:21px;line-height:1.3;font-variant-numeric:tabular-nums;white-space:nowrap}
.tile span{display:block;color:var(--soft);font-size:13px;line-height:1.4}
.tile b.bad{color:var(--bad)}.tile b.good{color:var(--good)}
figure{margin:18px 0 0;break-inside:avoid}
figcaption{display:flex;flex-wrap:wrap;justify-content:space-between;gap:0 20px;font-weight:600}
figcaption span{font-weight:400;color:var(--soft);font-size:13px}
svg{display:block;width:100%;height:auto;margin-top:3px}
svg text{font:11.5px system-ui,"DejaVu Sans",sans-serif;fill:var(--soft);font-variant-numeric:tabular-nums}
.value{text-anchor:end}.time{text-anchor:middle}
.grid{stroke:var(--line);stroke-width:.7}.axis{stroke:var(--soft);stroke-width:1}
.limit{stroke:var(--bad);stroke-width:1.3;stroke-dasharray:7 4}
.blue,.teal,.violet,.faint{stroke-width:1.1;stroke-linejoin:round;stroke-linecap:round;fill-opacity:.45}
.blue{stroke:var(--blue);fill:var(--blue)}.teal{stroke:var(--teal);fill:var(--teal)}
.violet{stroke:var(--violet);fill:var(--violet)}.faint{stroke:var(--grey);fill:var(--grey);stroke-opacity:.75}
.bars{stroke:var(--bad);stroke-width:1.4;fill:none}
.present{fill:var(--good)}
.shade.absent{fill:var(--bad)}.shade.nolink{fill:var(--warn)}.shade.noanswer{fill:var(--grey)}.shade.notlogged{fill:var(--line)}
figure.plot .shade{opacity:.22}figure.plot .shade.notlogged{opacity:.5}
.key{display:inline-block;width:11px;height:11px;border-radius:2px;margin:0 5px 0 12px;vertical-align:-1px}
table{border-collapse:collapse;width:100%;font-size:14px;font-variant-numeric:tabular-nums}
th{text-align:left;font-weight:600;color:var(--soft)}th,td{padding:4px 14px 4px 0;border-bottom:1px solid var(--line);vertical-align:top}
td.n,th.n{text-align:right}td.n,td:first-child{white-space:nowrap}tr{break-inside:avoid}
.wide{overflow-x:auto}
@media (max-width:760px){.tiles{grid-template-columns:repeat(2,1fr)}}
)";

inline constexpr const char* reportExplanation = R"(<h2>How to read this</h2>
<p class="soft">The figures are those of a measuring instrument that captures the stream's Ethernet frames where it is
received; every second is counted once. <b>Bit rate</b>: of whole frames with all headers; the transport stream's is
calculated from it, from packet size and packets per datagram. <b>Continuity errors</b>: jumps of the
continuity counter after ISO/IEC 13818-1, one for each gap of a PID however many packets are missing; a lost datagram
shows as one error on each PID that it carried, and the number of lost RTP packets can not be told from them.
<b>Delay factor</b>: how long a receiver has to hold the stream to play it out evenly. <b>Inter-arrival times</b>: of
the frames since the row before, at most the last 1024. <b>Availability</b>: time with the stream present, of the time in
which the instrument could tell; a stream counts as present until one to two seconds after its last frame. In the plots
nothing is averaged: each column shows the smallest and the largest value of its time.</p>
)";

} // namespace tessary::ctl
