#include "client/psi/aribtext.h"

#include <array>
#include <glib.h>
#include <memory>

namespace tessary::client {

namespace {

enum class Set { Kanji, Alphanumeric, Hiragana, Katakana, OneByteOther, TwoByteOther };

bool hasTwoBytes(Set set)
{
    return set == Set::Kanji || set == Set::TwoByteOther;
}

/// The set that a designation's last byte names.
Set setOf(std::uint8_t final)
{
    switch (final) {
    case 0x42:
    case 0x39: // JIS compatible kanji, plane 1
        return Set::Kanji;
    case 0x4A:
    case 0x36: // the same letters, proportional; likewise below
        return Set::Alphanumeric;
    case 0x30:
    case 0x37:
        return Set::Hiragana;
    case 0x31:
    case 0x38:
        return Set::Katakana;
    case 0x3A: // plane 2
    case 0x3B: // additional symbols
        return Set::TwoByteOther;
    default:
        return Set::OneByteOther;
    }
}

constexpr const char* unknownCharacter = "\xEF\xBF\xBD"; // U+FFFD

/// The character of JIS X 0208 in this row and cell, both 0x21 to 0x7E.
std::string jisCharacter(unsigned row, unsigned cell)
{
    const std::array<gchar, 2> extended{static_cast<gchar>(row | 0x80U), static_cast<gchar>(cell | 0x80U)};
    const std::unique_ptr<gchar, decltype(&g_free)> converted(
        g_convert(extended.data(), extended.size(), "UTF-8", "EUC-JP", nullptr, nullptr, nullptr), &g_free);
    return converted != nullptr ? converted.get() : unknownCharacter;
}

/// The kana sets have a row of JIS X 0208, and behind it marks that are elsewhere there.
std::string kana(unsigned row, unsigned cell)
{
    constexpr unsigned firstMark = 0x77;
    constexpr std::array<unsigned, 8> hiraganaMarks{0x35, 0x36, 0x3C, 0x23, 0x56, 0x57, 0x22, 0x26};
    constexpr std::array<unsigned, 8> katakanaMarks{0x33, 0x34, 0x3C, 0x23, 0x56, 0x57, 0x22, 0x26};
    constexpr unsigned hiraganaRow = 0x24;
    if (cell < firstMark)
        return jisCharacter(row, cell);
    const auto& marks = row == hiraganaRow ? hiraganaMarks : katakanaMarks;
    return jisCharacter(0x21, marks.at(cell - firstMark));
}

std::string letter(unsigned code)
{
    switch (code) {
    case 0x5C:
        return "¥";
    case 0x7E:
        return "‾";
    default:
        return {static_cast<char>(code)};
    }
}

class Decoder
{
public:
    Decoder(const std::uint8_t* text, std::size_t length)
        : m_next(text)
        , m_end(text + length)
    {
    }

    std::string run()
    {
        while (m_next != m_end)
            step(take());
        return m_text;
    }

private:
    std::uint8_t take() { return m_next != m_end ? *m_next++ : 0; }
    void skip(int bytes)
    {
        while (bytes-- > 0)
            take();
    }

    void step(std::uint8_t code)
    {
        const unsigned low = code & 0x7FU;
        if (low == 0x20 || low == 0x7F)
            m_text += code == 0x20 ? " " : ""; // 0xA0, 0xFF and DEL stand for nothing
        else if (low < 0x20)
            control(code);
        else
            character(low,
                m_sets.at(m_single >= 0 ? static_cast<std::size_t>(m_single)
                        : code < 0x80   ? m_left
                                        : m_right));
    }

    void character(unsigned code, Set set)
    {
        m_single = -1;
        const unsigned second = hasTwoBytes(set) ? take() & 0x7FU : 0;
        switch (set) {
        case Set::Kanji:
            m_text += second > 0x20 && second < 0x7F ? jisCharacter(code, second) : unknownCharacter;
            break;
        case Set::Alphanumeric:
            m_text += letter(code);
            break;
        case Set::Hiragana:
            m_text += kana(0x24, code);
            break;
        case Set::Katakana:
            m_text += kana(0x25, code);
            break;
        case Set::OneByteOther:
        case Set::TwoByteOther:
            m_text += unknownCharacter;
            break;
        }
    }

    void control(std::uint8_t code)
    {
        switch (code) {
        case 0x0E: // LS1
            m_left = 1;
            break;
        case 0x0F: // LS0
            m_left = 0;
            break;
        case 0x19: // SS2
            m_single = 2;
            break;
        case 0x1D: // SS3
            m_single = 3;
            break;
        case 0x1B:
            escape();
            break;
        case 0x9B: // CSI
            while (m_next != m_end && take() < 0x40) { }
            break;
        default:
            skip(parametersOf(code));
        }
    }

    static int parametersOf(std::uint8_t code)
    {
        switch (code) {
        case 0x1C: // APS
        case 0x9D: // TIME
            return 2;
        case 0x16: // PAPF
        case 0x8B: // SZX
        case 0x90: // COL
        case 0x91: // FLC
        case 0x93: // POL
        case 0x94: // WMM
        case 0x97: // HLC
        case 0x98: // RPC
            return 1;
        default:
            return 0;
        }
    }

    void escape()
    {
        std::uint8_t code = take();
        switch (code) {
        case 0x6E: // LS2
            m_left = 2;
            return;
        case 0x6F: // LS3
            m_left = 3;
            return;
        case 0x7E: // LS1R
            m_right = 1;
            return;
        case 0x7D: // LS2R
            m_right = 2;
            return;
        case 0x7C: // LS3R
            m_right = 3;
            return;
        default:
            designate(code);
        }
    }

    /// ESC (24) (28 to 2B) (20) F: a set into G0 to G3.
    void designate(std::uint8_t code)
    {
        const bool twoBytes = code == 0x24;
        if (twoBytes)
            code = take();
        std::size_t place = 0;
        if (code >= 0x28 && code <= 0x2B) {
            place = code - 0x28U;
            code = take();
        }
        if (code == 0x20) { // a set that can be loaded: not known here
            take();
            m_sets.at(place) = twoBytes ? Set::TwoByteOther : Set::OneByteOther;
        } else {
            m_sets.at(place) = setOf(code);
        }
    }

    const std::uint8_t* m_next;
    const std::uint8_t* m_end;
    std::array<Set, 4> m_sets{Set::Kanji, Set::Alphanumeric, Set::Hiragana, Set::Katakana}; // G0 to G3
    std::size_t m_left = 0; ///< which of them 0x21 to 0x7E are of
    std::size_t m_right = 2; ///< and 0xA1 to 0xFE
    int m_single = -1; ///< for the next character alone; -1 for none
    std::string m_text;
};

} // namespace

std::string aribText(const std::uint8_t* text, std::size_t length)
{
    return Decoder(text, length).run();
}

} // namespace tessary::client
