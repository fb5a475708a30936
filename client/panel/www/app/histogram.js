// A histogram of times, as SVG that grows with its place.

import {el, replace, svg} from "./dom.js";
import {countText, microsecondsText} from "./units.js";

const width = 640;
const height = 250;
const edge = {
    left: 44,
    right: 8,
    top: 10,
    bottom: 34
};

function heightOf(count, most, logarithmic) {
    const share = logarithmic ? Math.log10(count + 1) / Math.log10(most + 1) : count / most;
    return share * (height - edge.top - edge.bottom);
}

function bars(histogram, most, logarithmic) {
    const step = (width - edge.left - edge.right) / histogram.length;
    return histogram.map((bar, at) => {
        const tall = Math.max(heightOf(bar.count, most, logarithmic), bar.count > 0 ? 1.5 : 0);
        return svg("rect", {
            class: bar.outliers ? "bar outliers" : "bar",
            x: edge.left + at * step + 1,
            width: Math.max(step - 2, 1),
            y: height - edge.bottom - tall,
            height: tall
        },
            svg("title", {},
                `${microsecondsText(bar.from_us)} to ${microsecondsText(bar.to_us)}: ${
                    countText(bar.count)}`));
    });
}

function scale(histogram, most) {
    const step = (width - edge.left - edge.right) / histogram.length;
    const every = Math.ceil(histogram.length / 5);
    const below = histogram.filter((_, at) => at % every === 0)
                      .map((bar, at) => svg("text", {x: edge.left + at * every * step, y: height - 12},
                               microsecondsText(bar.from_us)));
    return [
        svg("line", {
            class: "axis",
            x1: edge.left,
            x2: width - edge.right,
            y1: height - edge.bottom,
            y2: height - edge.bottom
        }),
        svg("text", {class: "end", x: edge.left - 6, y: edge.top + 10}, countText(most)),
        svg("text", {class: "end", x: edge.left - 6, y: height - edge.bottom}, "0"), below
    ];
}

/// {element, show(histogram, logarithmic)}; the histogram as in `iat --json`.
export function histogramView() {
    const element = el("div", {class: "histogram"});
    const show = (histogram, logarithmic) => {
        if (!histogram?.length) {
            replace(element, el("p", {class: "soft"}, "No datagrams yet."));
            return;
        }
        const most = Math.max(...histogram.map((bar) => bar.count), 1);
        const first = histogram[0].from_us;
        const last = histogram.at(-1).to_us;
        replace(element,
            svg("svg", {
                viewBox: `0 0 ${width} ${height}`,
                role: "img",
                "aria-label": `Histogram of inter-arrival times from ${microsecondsText(first)} to ${
                    microsecondsText(last)}, ${countText(most)} in the tallest bar`
            },
                bars(histogram, most, logarithmic), scale(histogram, most)),
            histogram.at(-1).outliers ? el("p", {class: "soft"},
                `The last bar is wider than the others: all from ${
                    microsecondsText(histogram.at(-1).from_us)} to ${microsecondsText(last)}.`) :
                                        null);
    };
    return {element, show};
}
