#include "extra/numeral.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/system.h"

constexpr std::array<EXTRA_ROME, 30> Extra_Rome = {{
    {1, "I"},     {2, "II"},     {3, "III"},   {4, "IV"},   {5, "V"},     {6, "VI"},
    {7, "VII"},   {8, "VIII"},   {9, "IX"},    {10, "X"},   {20, "XX"},   {30, "XXX"},
    {40, "XL"},   {50, "L"},     {60, "LX"},   {70, "LXX"}, {80, "LXXX"}, {90, "XC"},
    {100, "C"},   {200, "CC"},   {300, "CCC"}, {400, "CD"}, {500, "D"},   {600, "DC"},
    {700, "DCC"}, {800, "DCCC"}, {900, "CM"},  {1000, "M"}, {2000, "MM"}, {3000, "MMM"},
}};

static constexpr uint16_t LetterValue(char letter)
{
    constexpr std::string_view letters = "IVXLCDM";
    constexpr std::array<uint16_t, letters.size()> values = {1, 5, 10, 50, 100, 500, 1000};
    return values[letters.find(letter)];
}

// A numeral before a greater one is subtracted.
static constexpr bool RomeAddsUp()
{
    for (const EXTRA_ROME &rome : Extra_Rome) {
        const std::string_view text = rome.Text;
        int sum = 0;
        for (size_t i = 0; i < text.size(); i++) {
            const int value = LetterValue(text[i]);
            const bool negative = i + 1 < text.size() && LetterValue(text[i + 1]) > value;
            sum += negative ? -value : value;
        }
        if (sum != rome.Value)
            return false;
    }
    return std::is_sorted(Extra_Rome.begin(), Extra_Rome.end(),
                          [](const auto &a, const auto &b) { return a.Value < b.Value; });
}
static_assert(RomeAddsUp(), "every text is worth its value, the least first");

// On purpose: the tests run in sequence with strict bounds, so b to z, B to Z and 0 to 9 give their
// values, but the letter a gives 42 and the letter A gives 17.
static uint8_t DigitOf(char character)
{
    auto digit = static_cast<uint8_t>(character);
    if (digit > 97)
        digit -= 87;
    if (digit > 65)
        digit -= 55;
    if (digit > 47)
        digit -= 48;
    return digit;
}

static uint32_t ReadNumeral(std::string_view text, uint8_t base)
{
    uint32_t value = 0;
    for (size_t i = 0; i < text.size(); i++) {
        const double place = static_cast<double>(text.size() - 1 - i);
        value = System_TruncateToUDWord(value + DigitOf(text[i]) * std::pow(base, place));
    }
    return value;
}

static uint32_t ReadRoman(std::string_view text)
{
    uint32_t value = 0;
    for (;;) {
        const auto rome =
            std::find_if(Extra_Rome.rbegin(), Extra_Rome.rend(),
                         [&](const EXTRA_ROME &entry) { return text.starts_with(entry.Text); });
        if (rome == Extra_Rome.rend())
            return value;
        value += rome->Value;
        text.remove_prefix(std::string_view(rome->Text).size());
    }
}

static std::string WriteNumeral(uint32_t value, uint8_t base)
{
    std::string text;
    do {
        const uint32_t digit = value % base;
        text += static_cast<char>(digit + (digit > 9 ? 55 : 48));
        value /= base;
    } while (value > 0);
    std::reverse(text.begin(), text.end());
    return text;
}

static std::string WriteRoman(uint32_t value)
{
    const std::string digits = WriteNumeral(value, 10);
    std::string text;
    for (size_t i = 0; i < digits.size(); i++) {
        const size_t place = digits.size() - 1 - i;
        // On purpose: digits from the ten thousands up count as units.
        const uint32_t part =
            static_cast<uint32_t>(digits[i] - '0') * (place < 4 ? Pow10[place] : 1);
        for (const EXTRA_ROME &rome : Extra_Rome)
            if (rome.Value == part)
                text += rome.Text;
    }
    return text;
}

void Extra_Convert(uint8_t fromBase, uint8_t toBase, const char *source, char *destination)
{
    const std::string_view text = source;
    const uint32_t value = fromBase == 0 ? ReadRoman(text) : ReadNumeral(text, fromBase);
    std::string result;
    if (!text.empty() && toBase != 1)
        result = toBase == 0 ? WriteRoman(value) : WriteNumeral(value, toBase);
    System_StrCpy(destination, result.c_str());
}
