#include "tools/art/ham8.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <tuple>
#include <utility>

#include "picture/ham68.h"

constexpr size_t HAM8_Beam = 16;      // colour states that a row's search keeps at each pixel
constexpr size_t HAM8_LookAhead = 3;  // pixels ahead whose components a change may set in advance
// The unit of costs; smaller differences are a preference among equally good codes.
constexpr uint64_t HAM8_ErrorUnit = 1 << 16;

namespace
{
// A decoder's colour after a pixel, on the cheapest known path to it.
struct STATE {
    HAM8_RGB Colour;
    uint8_t Code;
    uint8_t From;   // index among the states of the pixel before
    uint64_t Cost;  // of the row so far: squared errors in HAM8_ErrorUnit, plus changes of code
};
}  // namespace

// Control bits of the code that replaces each component.
constexpr std::array<uint8_t, 3> HAM8_Modify = {2, 3, 1};

static uint32_t HAM8_Error(const HAM8_RGB &a, const HAM8_RGB &b)
{
    uint32_t sum = 0;
    for (size_t c = 0; c < 3; c++)
        sum += static_cast<uint32_t>((a[c] - b[c]) * (a[c] - b[c]));
    return sum;
}

// The nearest value that a code can hold.
static uint8_t HAM8_Carried(uint8_t v)
{
    return static_cast<uint8_t>(std::min(v + 2, 255) & 0xFC);
}

// The decoder's possible states after one more pixel, which should look like ahead[0].
static std::vector<STATE> HAM8_Successors(std::span<const STATE> states,
                                          std::span<const HAM8_RGB> ahead,
                                          const HAM8_PALETTE &palette)
{
    std::vector<STATE> next;
    next.reserve(palette.size() + states.size() * (1 + 3 * ahead.size()));
    const auto add = [&](size_t from, const HAM8_RGB &colour, uint8_t code) {
        const uint64_t change = code != states[from].Code;
        const uint64_t cost =
            states[from].Cost + HAM8_ErrorUnit * HAM8_Error(colour, ahead[0]) + change;
        next.push_back({colour, code, static_cast<uint8_t>(from), cost});
    };
    for (size_t i = 0; i < palette.size(); i++)
        add(0, palette[i], static_cast<uint8_t>(i << 2));  // the cheapest path comes first
    for (size_t from = 0; from < states.size(); from++) {
        const STATE &s = states[from];
        add(from, s.Colour, s.Code);  // repeating the code holds the colour
        for (size_t c = 0; c < 3; c++)
            for (size_t k = 0; k < ahead.size(); k++) {
                HAM8_RGB colour = s.Colour;
                colour[c] = HAM8_Carried(ahead[k][c]);
                if (colour != s.Colour && (k == 0 || ahead[k][c] != ahead[k - 1][c]))
                    add(from, colour, static_cast<uint8_t>(colour[c] | HAM8_Modify[c]));
            }
    }
    return next;
}

// Keeps the cheapest state of each colour, at most HAM8_Beam of them, sorted by cost.
static std::vector<STATE> HAM8_Thin(std::vector<STATE> states)
{
    const auto cheaper = [](const STATE &a, const STATE &b) {
        return std::tie(a.Cost, a.Colour, a.From, a.Code) <
               std::tie(b.Cost, b.Colour, b.From, b.Code);
    };
    const auto some =
        states.begin() + static_cast<ptrdiff_t>(std::min(states.size(), 4 * HAM8_Beam));
    std::nth_element(states.begin(), some, states.end(), cheaper);
    std::sort(states.begin(), some, cheaper);
    std::vector<STATE> kept;
    for (auto s = states.begin(); s != some && kept.size() < HAM8_Beam; s++)
        if (std::none_of(kept.begin(), kept.end(),
                         [&](const STATE &k) { return k.Colour == s->Colour; }))
            kept.push_back(*s);
    return kept;
}

namespace
{
struct ROW {
    std::vector<uint8_t> Codes;
    uint64_t Cost;
};
}  // namespace

static ROW HAM8_EncodeRow(std::span<const HAM8_RGB> pixels, const HAM8_PALETTE &palette)
{
    // Black has no code to repeat: at the row's start, holding it sets red to 0.
    std::vector<std::vector<STATE>> trail = {{{{0, 0, 0}, HAM8_Modify[0], 0, 0}}};
    for (size_t x = 0; x < pixels.size(); x++) {
        const auto ahead = pixels.subspan(x, std::min(HAM8_LookAhead, pixels.size() - x));
        trail.push_back(HAM8_Thin(HAM8_Successors(trail.back(), ahead, palette)));
    }
    ROW row = {std::vector<uint8_t>(pixels.size()), trail.back().front().Cost};
    size_t at = 0;
    for (size_t x = pixels.size(); x-- > 0; at = trail[x + 1][at].From)
        row.Codes[x] = trail[x + 1][at].Code;
    return row;
}

static HAM8_IMAGE HAM8_EncodeRows(std::span<const HAM8_RGB> pixels, uint16_t width,
                                  const HAM8_PALETTE &palette)
{
    HAM8_IMAGE image = {width, static_cast<uint16_t>(pixels.size() / width), palette, {}, 0};
    std::map<std::vector<HAM8_RGB>, ROW> known;  // rows often recur
    for (size_t start = 0; start < pixels.size(); start += width) {
        const auto source = pixels.subspan(start, width);
        ROW &row = known[{source.begin(), source.end()}];
        if (row.Codes.empty())
            row = HAM8_EncodeRow(source, palette);
        image.Codes.insert(image.Codes.end(), row.Codes.begin(), row.Codes.end());
        image.Cost += row.Cost / HAM8_ErrorUnit;
    }
    return image;
}

static uint8_t HAM8_Median(std::vector<uint8_t> values)
{
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

namespace
{
// A set of pixels, for the median cut.
struct BOX {
    std::span<HAM8_RGB> Pixels;
    size_t Axis;      // the component of the greatest spread
    uint64_t Sum;     // sum of that component
    uint64_t Spread;  // its squared deviations; 0: all pixels are equal
};
}  // namespace

static BOX HAM8_Measure(std::span<HAM8_RGB> pixels)
{
    BOX box = {pixels, 0, 0, 0};
    for (size_t c = 0; c < 3; c++) {
        uint64_t sum = 0, squares = 0;
        for (const HAM8_RGB &p : pixels) {
            sum += p[c];
            squares += uint64_t{p[c]} * p[c];
        }
        const uint64_t spread = squares - sum * sum / pixels.size();
        if (c == 0 || spread > box.Spread)
            box = {pixels, c, sum, spread};
    }
    return box;
}

static HAM8_RGB HAM8_Middle(std::span<const HAM8_RGB> pixels)
{
    HAM8_RGB middle;
    for (size_t c = 0; c < 3; c++) {
        std::vector<uint8_t> values;
        for (const HAM8_RGB &p : pixels)
            values.push_back(p[c]);
        middle[c] = HAM8_Median(std::move(values));
    }
    return middle;
}

// Heckbert's median cut: the box with the greatest spread is cut at its mean until 64 boxes exist.
static HAM8_PALETTE HAM8_MedianCut(std::span<const HAM8_RGB> pixels)
{
    std::vector<HAM8_RGB> sorted(pixels.begin(), pixels.end());
    std::vector<BOX> boxes = {HAM8_Measure(sorted)};
    while (boxes.size() < 64) {
        BOX &widest = *std::max_element(boxes.begin(), boxes.end(), [](const BOX &a, const BOX &b) {
            return a.Spread < b.Spread;
        });
        if (widest.Spread == 0)
            break;
        const BOX all = widest;
        const auto upper =
            std::partition(all.Pixels.begin(), all.Pixels.end(), [&](const HAM8_RGB &p) {
                return p[all.Axis] * all.Pixels.size() <= all.Sum;
            });
        const auto below = static_cast<size_t>(upper - all.Pixels.begin());
        widest = HAM8_Measure(all.Pixels.first(below));
        boxes.push_back(HAM8_Measure(all.Pixels.subspan(below)));
    }
    HAM8_PALETTE palette{};
    std::transform(boxes.begin(), boxes.end(), palette.begin(),
                   [](const BOX &box) { return HAM8_Middle(box.Pixels); });
    return palette;
}

namespace
{
// How an image's codes use its palette: for each entry and component, the source values shown by it
// until another code replaces it; and the remaining errors by source colour.
struct SURVEY {
    std::array<std::array<std::vector<uint8_t>, 3>, 64> Values;
    std::vector<std::pair<uint32_t, HAM8_RGB>> Errors;  // the greatest sums first
};
}  // namespace

static SURVEY HAM8_Survey(const HAM8_IMAGE &image, std::span<const HAM8_RGB> pixels)
{
    SURVEY survey;
    std::map<HAM8_RGB, uint32_t> errors;
    HAM8_RGB running{};
    std::array<int, 3> owner{};  // the palette entry that each component comes from; below 0: none
    for (size_t i = 0; i < pixels.size(); i++) {
        if (i % image.Width == 0) {
            running = {};
            owner.fill(-1);
        }
        const uint8_t code = image.Codes[i], control = code & 3;
        for (size_t c = 0; c < 3; c++) {
            if (control == 0)
                owner[c] = code >> 2;
            else if (control == HAM8_Modify[c])
                owner[c] = -1;
            running[c] = control == 0                ? image.Palette[code >> 2][c]
                         : control == HAM8_Modify[c] ? static_cast<uint8_t>(code & 0xFC)
                                                     : running[c];
            if (owner[c] >= 0)
                survey.Values[static_cast<size_t>(owner[c])][c].push_back(pixels[i][c]);
        }
        errors[pixels[i]] += HAM8_Error(running, pixels[i]);
    }
    for (const auto &[colour, error] : errors)
        survey.Errors.emplace_back(error, colour);
    std::sort(survey.Errors.rbegin(), survey.Errors.rend());
    return survey;
}

// Proposes a better palette: entries move to the mean of what they represent, and the least used
// ones to where the errors are. `refused` counts the proposals that did not help and varies the
// next.
static HAM8_PALETTE HAM8_Propose(const HAM8_IMAGE &image, const SURVEY &survey, size_t refused)
{
    HAM8_PALETTE palette = image.Palette;
    std::array<size_t, 64> order;
    std::iota(order.begin(), order.end(), size_t{0});
    const auto uses = [&](size_t i) { return survey.Values[i][0].size(); };
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return uses(a) < uses(b); });
    for (size_t i = 0; i < palette.size(); i++)
        for (size_t c = 0; c < 3; c++)
            if (!survey.Values[i][c].empty())
                palette[i][c] = HAM8_Median(survey.Values[i][c]);
    const size_t moved = refused == 0 ? 4 : 1;
    for (size_t k = 0; k < moved; k++) {
        const size_t from = (refused / 8 + k) % 64, to = refused + k;
        if (to < survey.Errors.size() && survey.Errors[to].first > 0)
            palette[order[from]] = survey.Errors[to].second;
    }
    return palette;
}

HAM8_IMAGE HAM8_Encode(std::span<const HAM8_RGB> pixels, uint16_t width, int rounds)
{
    HAM8_IMAGE best = HAM8_EncodeRows(pixels, width, HAM8_MedianCut(pixels));
    SURVEY survey = HAM8_Survey(best, pixels);
    size_t refused = 0;
    for (int round = 0; round < rounds && best.Cost > 0; round++) {
        HAM8_IMAGE image = HAM8_EncodeRows(pixels, width, HAM8_Propose(best, survey, refused));
        if (image.Cost < best.Cost) {
            best = std::move(image);
            survey = HAM8_Survey(best, pixels);
            refused = 0;
        } else {
            refused++;
        }
    }
    return best;
}

std::vector<uint8_t> HAM8_File(const HAM8_IMAGE &image)
{
    std::vector<uint8_t> plain;
    const std::span<const uint8_t> codes = image.Codes;
    for (size_t start = 0; start < codes.size(); start += image.Width)
        HAM68_AppendPlanes(codes.subspan(start, image.Width), 8, plain);
    const std::vector<uint8_t> packed = HAM68_CompressRuns(plain);
    const bool squeezed = packed.size() < plain.size();

    std::vector<uint8_t> file = {'H', 'A', 'M', '8'};
    for (const int v :
         {image.Width >> 11, image.Width >> 3, image.Height >> 8, +image.Height, 8, +squeezed})
        file.push_back(static_cast<uint8_t>(v));
    file.insert(file.end(), HAM68_Description.begin(), HAM68_Description.end());
    for (const HAM8_RGB &entry : image.Palette)
        file.insert(file.end(), entry.begin(), entry.end());
    const std::vector<uint8_t> &body = squeezed ? packed : plain;
    file.insert(file.end(), body.begin(), body.end());
    return file;
}
