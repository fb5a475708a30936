// Command lines of tessaryctl: taken apart as a shell does, and the one that stands for each row of the protocol's table.

/// Words of a line, parted by blanks; quotes hold together, a backslash takes the next character as it is outside of single quotes.
export function wordsOf(line) {
    const words = [];
    let word = null;
    let quote = "";
    for (let at = 0; at < line.length; at += 1) {
        const letter = line[at];
        if (quote !== "") {
            if (letter === quote)
                quote = "";
            else
                word += letter === "\\" && quote === "\"" && "\"\\".includes(line[at + 1]) ? line[(at += 1)] :
                                                                                             letter;
        } else if (letter === "'" || letter === "\"") {
            quote = letter;
            word ??= "";
        } else if (/\s/.test(letter)) {
            if (word !== null) words.push(word);
            word = null;
        } else
            word = (word ?? "") + (letter === "\\" && at + 1 < line.length ? line[(at += 1)] : letter);
    }
    if (quote !== "") throw new SyntaxError(`a quote ${quote} is open`);
    if (word !== null) words.push(word);
    return words[0] === "tessaryctl" ? words.slice(1) : words;
}

/// Row of the protocol's table -> [command line, page that has it].
export const toolLines = {
    1: ["interface", "network"],
    2: ["interface dhcp", "network"],
    3: ["raw server?", "commands"],
    4: ["server udp://239.0.0.1:1234", "stream"],
    5: ["scan", "stream"],
    6: ["info", "stream"],
    7: ["status", "overview"],
    8: ["raw getnit?", "stream"],
    9: ["raw getpmt?", "stream"],
    10: ["play 1", "stream"],
    11: ["iat", "reception"],
    12: ["measure", "reception"],
    13: ["ping 192.168.77.1", "network"],
    14: ["version", "fpga"],
    15: ["update FILE.deb", "update"],
    16: ["send-ts", "fpga"],
    17: ["t2mi-frame", "t2mi"],
    18: ["interface status", "network"],
    19: ["ebs scan", "fpga"],
    20: ["ebs play 1", "fpga"],
    21: ["ebs name 1", "fpga"],
    22: ["ebs status", "fpga"],
    23: ["ebs info", "fpga"],
    24: ["ebs audio 64", "fpga"],
    25: ["ebs version", "fpga"],
    26: ["record start", "recorder"],
    27: ["record stop", "recorder"],
    28: ["scan --source recording", "recorder"],
    29: ["record status", "recorder"],
    30: ["export", "recorder"],
    31: ["dab start", "dab"],
    32: ["dab stop", "dab"],
    33: ["dab send list?", "dab"],
    34: ["command --output 'uname -a'", "commands"],
};
