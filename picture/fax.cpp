#include "picture/fax.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "picture/bits.h"

namespace
{

// Runs from 0 to 63, then those of 64, 128, ... 1728 (ITU-T T.4, tables 2 and 3a).
using FAX_CODES = std::array<std::string_view, 64 + 27>;

// Table entry for the next bits of the stream. Bits 0: no code.
struct FAX_RUN {
    uint16_t Length;
    uint8_t Bits;
};

constexpr size_t FAX_MaxBits = 13;
using FAX_RUNS = std::array<FAX_RUN, 1 << FAX_MaxBits>;

enum FAX_MODE : uint8_t { FAX_None, FAX_Pass, FAX_Horizontal, FAX_Vertical };

struct FAX_STEP {
    FAX_MODE Mode;
    uint8_t Bits;
    int8_t Shift;  // a1 - b1 in pixels
};

}  // namespace

static constexpr FAX_CODES whiteCodes = {
    "00110101",  "000111",    "0111",      "1000",      "1011",      "1100",      "1110",
    "1111",      "10011",     "10100",     "00111",     "01000",     "001000",    "000011",
    "110100",    "110101",    "101010",    "101011",    "0100111",   "0001100",   "0001000",
    "0010111",   "0000011",   "0000100",   "0101000",   "0101011",   "0010011",   "0100100",
    "0011000",   "00000010",  "00000011",  "00011010",  "00011011",  "00010010",  "00010011",
    "00010100",  "00010101",  "00010110",  "00010111",  "00101000",  "00101001",  "00101010",
    "00101011",  "00101100",  "00101101",  "00000100",  "00000101",  "00001010",  "00001011",
    "01010010",  "01010011",  "01010100",  "01010101",  "00100100",  "00100101",  "01011000",
    "01011001",  "01011010",  "01011011",  "01001010",  "01001011",  "00110010",  "00110011",
    "00110100",  "11011",     "10010",     "010111",    "0110111",   "00110110",  "00110111",
    "01100100",  "01100101",  "01101000",  "01100111",  "011001100", "011001101", "011010010",
    "011010011", "011010100", "011010101", "011010110", "011010111", "011011000", "011011001",
    "011011010", "011011011", "010011000", "010011001", "010011010", "011000",    "010011011"};

static constexpr FAX_CODES blackCodes = {"0000110111",
                                         "010",
                                         "11",
                                         "10",
                                         "011",
                                         "0011",
                                         "0010",
                                         "00011",
                                         "000101",
                                         "000100",
                                         "0000100",
                                         "0000101",
                                         "0000111",
                                         "00000100",
                                         "00000111",
                                         "000011000",
                                         "0000010111",
                                         "0000011000",
                                         "0000001000",
                                         "00001100111",
                                         "00001101000",
                                         "00001101100",
                                         "00000110111",
                                         "00000101000",
                                         "00000010111",
                                         "00000011000",
                                         "000011001010",
                                         "000011001011",
                                         "000011001100",
                                         "000011001101",
                                         "000001101000",
                                         "000001101001",
                                         "000001101010",
                                         "000001101011",
                                         "000011010010",
                                         "000011010011",
                                         "000011010100",
                                         "000011010101",
                                         "000011010110",
                                         "000011010111",
                                         "000001101100",
                                         "000001101101",
                                         "000011011010",
                                         "000011011011",
                                         "000001010100",
                                         "000001010101",
                                         "000001010110",
                                         "000001010111",
                                         "000001100100",
                                         "000001100101",
                                         "000001010010",
                                         "000001010011",
                                         "000000100100",
                                         "000000110111",
                                         "000000111000",
                                         "000000100111",
                                         "000000101000",
                                         "000001011000",
                                         "000001011001",
                                         "000000101011",
                                         "000000101100",
                                         "000001011010",
                                         "000001100110",
                                         "000001100111",
                                         "0000001111",
                                         "000011001000",
                                         "000011001001",
                                         "000001011011",
                                         "000000110011",
                                         "000000110100",
                                         "000000110101",
                                         "0000001101100",
                                         "0000001101101",
                                         "0000001001010",
                                         "0000001001011",
                                         "0000001001100",
                                         "0000001001101",
                                         "0000001110010",
                                         "0000001110011",
                                         "0000001110100",
                                         "0000001110101",
                                         "0000001110110",
                                         "0000001110111",
                                         "0000001010010",
                                         "0000001010011",
                                         "0000001010100",
                                         "0000001010101",
                                         "0000001011010",
                                         "0000001011011",
                                         "0000001100100",
                                         "0000001100101"};

// Runs of 1792, 1856, ... 2560 of either colour (ITU-T T.4, table 3b).
static constexpr std::array<std::string_view, 13> longCodes = {
    "00000001000",  "00000001100",  "00000001101",  "000000010010", "000000010011",
    "000000010100", "000000010101", "000000010110", "000000010111", "000000011100",
    "000000011101", "000000011110", "000000011111"};

// Calls put(i) for every `bits`-wide number that begins with the code.
template <typename Put>
static constexpr void ForEachStart(std::string_view code, size_t bits, const Put &put)
{
    size_t first = 0;
    for (const char digit : code)
        first = first * 2 + static_cast<size_t>(digit == '1');
    const size_t free = bits - code.size();
    for (size_t i = first << free; i < (first + 1) << free; i++)
        put(i);
}

static constexpr FAX_RUNS MakeRuns(const FAX_CODES &codes)
{
    FAX_RUNS runs{};
    const auto add = [&runs](std::string_view code, size_t length) {
        ForEachStart(code, FAX_MaxBits, [&](size_t i) {
            runs[i] = {static_cast<uint16_t>(length), static_cast<uint8_t>(code.size())};
        });
    };
    for (size_t i = 0; i < codes.size(); i++)
        add(codes[i], i < 64 ? i : (i - 63) * 64);
    for (size_t i = 0; i < longCodes.size(); i++)
        add(longCodes[i], 1792 + 64 * i);
    return runs;
}

static constexpr FAX_RUNS whiteRuns = MakeRuns(whiteCodes), blackRuns = MakeRuns(blackCodes);

// No code is a prefix of another, and only numbers that begin with eight zeros have no code.
static constexpr bool IsComplete(const FAX_RUNS &runs, const FAX_CODES &codes)
{
    size_t taken = 0;
    const auto count = [&taken](std::string_view code) {
        taken += size_t{1} << (FAX_MaxBits - code.size());
    };
    for (const auto code : codes)
        count(code);
    for (const auto code : longCodes)
        count(code);
    const size_t zeros = runs.size() >> 8;
    size_t found = 0;
    for (size_t i = zeros; i < runs.size(); i++)
        found += runs[i].Bits != 0;
    return taken == found && found == runs.size() - zeros && runs[zeros - 1].Bits == 0;
}
static_assert(IsComplete(whiteRuns, whiteCodes) && IsComplete(blackRuns, blackCodes));

// ITU-T T.4, table 4.
constexpr size_t FAX_ModeBits = 7;
static constexpr std::array<FAX_STEP, 1 << FAX_ModeBits> steps = [] {
    std::array<FAX_STEP, 1 << FAX_ModeBits> table{};
    const auto add = [&table](std::string_view code, FAX_MODE mode, int shift = 0) {
        ForEachStart(code, FAX_ModeBits, [&](size_t i) {
            table[i] = {mode, static_cast<uint8_t>(code.size()), static_cast<int8_t>(shift)};
        });
    };
    add("0001", FAX_Pass);
    add("001", FAX_Horizontal);
    add("1", FAX_Vertical, 0);
    add("011", FAX_Vertical, 1);
    add("000011", FAX_Vertical, 2);
    add("0000011", FAX_Vertical, 3);
    add("010", FAX_Vertical, -1);
    add("000010", FAX_Vertical, -2);
    add("0000010", FAX_Vertical, -3);
    return table;
}();

namespace
{

// Positions of a row's colour changes: white up to the first, black up to the second, and so on. A
// reference row ends with three more positions equal to the width.
using FAX_CHANGES = std::vector<size_t>;

struct FAX_READER {
    std::span<const uint8_t> In;
    size_t Width;
    size_t Bit = 0;
    FAX_CHANGES Row{}, Reference{};

    bool AtEnd() const
    {
        return Bit >= In.size() * 8;
    }

    size_t Peek(size_t bits) const
    {
        return static_cast<size_t>(Bits_PeekHigh(In, Bit) >> (64 - bits));
    }

    // Reads a run: any number of codes for multiples of 64, then one for the rest. SIZE_MAX:
    // damage.
    size_t GetRun(bool black)
    {
        const FAX_RUNS &runs = black ? blackRuns : whiteRuns;
        for (size_t length = 0;;) {
            const FAX_RUN run = runs[Peek(FAX_MaxBits)];
            if (run.Bits == 0 || AtEnd())
                return SIZE_MAX;
            Bit += run.Bits;
            length += run.Length;
            if (run.Length < 64)
                return length;
        }
    }

    // Reads a one-dimensional row. False: damage, or more pixels than the row has.
    bool ReadOneD()
    {
        size_t position = 0;
        for (bool black = false; position < Width; black = !black) {
            const size_t run = GetRun(black);
            if (run > Width - position)
                return false;
            Row.push_back(position += run);
        }
        return true;
    }

    // Reads a two-dimensional row, which is coded by its differences from the reference row, the
    // one before. The names are those of ITU-T T.4, 4.2. a0 is the position up to which the row is
    // known, a1 its next colour change and a2 the one after. b1 is the first change of the
    // reference row after a0 that turns to the colour opposite to a0's, b2 the change after b1.
    // Each code is one of three modes:
    //
    // pass        both changes b1 and b2 are skipped: a0 moves to b2, the colour stays
    // horizontal  two runs follow in one-dimensional codes: from a0 to a1 and from a1 to a2
    // vertical    a1 lies up to 3 pixels left or right of b1
    //
    // In Reference, changes to black have even indexes and changes to white odd ones, so the parity
    // of b1 must match the current colour. After a vertical code to the left b1 may lie before its
    // old place, therefore the search first steps back by one, then ahead by twos.
    bool ReadTwoD()
    {
        size_t a0 = 0, b1 = 0;
        bool begun = false;  // false at first: a0 is before pixel 0, so b1 may be 0
        while (a0 < Width) {
            const FAX_STEP step = steps[Peek(FAX_ModeBits)];
            if (step.Mode == FAX_None || AtEnd())
                return false;
            Bit += step.Bits;
            const bool black = Row.size() % 2 != 0;
            if (b1 % 2 != size_t{black})
                b1 = b1 > 0 ? b1 - 1 : 1;
            while (Reference[b1] < Width && Reference[b1] < a0 + size_t{begun})
                b1 += 2;
            begun = true;
            if (step.Mode == FAX_Pass) {
                a0 = Reference[b1 + 1];
            } else if (step.Mode == FAX_Horizontal) {
                for (const bool colour : {black, !black}) {
                    const size_t run = GetRun(colour);
                    if (run > Width - a0)
                        return false;
                    Row.push_back(a0 += run);
                }
            } else {
                const size_t a1 = Reference[b1] + static_cast<size_t>(ptrdiff_t{step.Shift});
                if (a1 > Width || a1 < a0)  // a negative a1 wraps to more than any width
                    return false;
                Row.push_back(a0 = a1);
            }
        }
        if (Row.size() % 2 != 0)
            Row.push_back(Width);  // a row may end by passing, in black
        return true;
    }

    // Skips an end-of-line code with the fill zeros before it, if it comes next.
    bool SkipEndOfLine()
    {
        if (Peek(11) != 0)
            return false;
        size_t at = Bit + 11;
        while (at < In.size() * 8) {
            const uint64_t bits = Bits_PeekHigh(In, at);
            if (bits >> 8 != 0) {  // the low 8 bits may be past the 56 that were peeked
                Bit = at + static_cast<size_t>(std::countl_zero(bits)) + 1;
                return Bit <= In.size() * 8;
            }
            at += 56;
        }
        return false;
    }

    // Advances to the next end-of-line code, or to the end.
    void FindEndOfLine()
    {
        while (!AtEnd() && Peek(11) != 0)
            Bit += 12 - static_cast<size_t>(std::bit_width(Peek(11)));
    }

    // Advances to the first code of a row; `twoD` receives whether it is two-dimensional. False:
    // the page ends here.
    bool BeginRow(FAX_SCHEME scheme, bool lost, bool &twoD)
    {
        twoD = scheme == FAX_Group4;
        const bool tagged = scheme == FAX_Group3TwoD;
        switch (scheme) {
        case FAX_Bytes:
            Bit = (Bit + 7) / 8 * 8;
            break;
        case FAX_Words:
            Bit = (Bit + 15) / 16 * 16;
            break;
        case FAX_Group4:
            break;
        default:
            if (tagged || lost)
                FindEndOfLine();
            while (SkipEndOfLine()) {  // some files have none; several in a row end the page
                twoD = tagged && Peek(1) == 0;
                Bit += tagged;
            }
        }
        return !AtEnd() && Peek(11) != 0;
    }
};

}  // namespace

// Sets bits first..last - 1.
static void SetBits(uint8_t *row, size_t first, size_t last)
{
    if (first >= last)
        return;
    const auto head = static_cast<uint8_t>(0xFF >> first % 8);
    const auto tail = static_cast<uint8_t>(~(0xFF >> last % 8));
    if (first / 8 == last / 8) {
        row[first / 8] |= head & tail;
        return;
    }
    row[first / 8] |= head;
    std::fill(row + first / 8 + 1, row + last / 8, uint8_t{0xFF});
    if (tail != 0)
        row[last / 8] |= tail;
}

// Draws the runs, fills the rest of the row with white, and makes it a reference row.
static void WriteRow(FAX_CHANGES &row, size_t width, std::span<uint8_t> out)
{
    if (row.size() % 2 != 0)
        row.push_back(row.back());
    std::fill(out.begin(), out.end(), uint8_t{0});
    for (size_t i = 0; i < row.size(); i += 2)
        SetBits(out.data(), row[i], row[i + 1]);
    row.insert(row.end(), 3, width);
}

FAX_RESULT FAX_Expand(std::span<const uint8_t> in, FAX_SCHEME scheme, size_t width,
                      std::span<uint8_t> out)
{
    const bool marked = scheme == FAX_Group3 || scheme == FAX_Group3TwoD;
    const size_t rowBytes = (width + 7) / 8;
    FAX_READER reader{in, width};
    reader.Reference.assign(3, width);
    FAX_RESULT result{};
    bool whole = true, twoD = false;
    for (; out.size() >= rowBytes && (whole || marked); out = out.subspan(rowBytes)) {
        if (!reader.BeginRow(scheme, !whole, twoD))
            break;
        reader.Row.clear();
        whole = twoD ? reader.ReadTwoD() : reader.ReadOneD();
        result.Damaged = result.Damaged || !whole;
        if (!whole && reader.Row.empty() && (!marked || reader.AtEnd()))
            break;
        WriteRow(reader.Row, width, out.first(rowBytes));
        std::swap(reader.Row, reader.Reference);
        result.Rows++;
    }
    return result;
}
