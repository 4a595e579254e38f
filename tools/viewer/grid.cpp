#include "tools/viewer/grid.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "platform/glfew.h"
#include "tools/viewer/ahead.h"
#include "tools/viewer/screen.h"
#include "tools/viewer/sheet.h"

constexpr float Grid_Gap = 12, Grid_NameHeight = 28;
constexpr size_t Grid_MaxAhead = 2000;     // thumbnails, of some 60 KB each
constexpr size_t Grid_MaxCells = 400;      // cells that keep their textures
constexpr uint32_t Grid_NameLetters = 14;  // as wide as a thumbnail
constexpr size_t Grid_MaxReasonLines = 7;  // as high

size_t Grid_Marked;

namespace
{

struct CELL {
    std::string Path;
    uint32_t Texture = 0;
    float Width = 0, Height = 0;
    SCREEN_LABEL Name, Reason;  // Reason: why there is no picture
};

}  // namespace

static std::map<size_t, CELL> cells;  // by file number
static float scroll;                  // pixels hidden above the window
static size_t asked = SIZE_MAX;       // first file when thumbnails were last requested
static size_t askedCount, seenDone;
static bool moved = true;
static SCREEN_LABEL progress;
static uint32_t markTexture;

static float CellWidth()
{
    return Viewer_SmallSide * Screen_LetterScale() + Grid_Gap;
}

static float CellHeight()
{
    return (Viewer_SmallSide + Grid_NameHeight) * Screen_LetterScale() + Grid_Gap;
}

static size_t Across()
{
    return static_cast<size_t>(std::max(Screen_Width() / CellWidth(), 1.0F));
}

static size_t Rows(size_t count)
{
    return (count + Across() - 1) / Across();
}

static float Left()
{
    return std::floor((Screen_Width() - static_cast<float>(Across()) * CellWidth()) / 2);
}

static void ScrollTo(float to, size_t count)
{
    const float all = static_cast<float>(Rows(count)) * CellHeight() + Grid_Gap +
                      Grid_NameHeight * Screen_LetterScale();
    scroll = std::clamp(to, 0.0F, std::max(all - Screen_Height(), 0.0F));
    moved = true;
}

void Grid_Show(const std::vector<FILES_ENTRY> &files)
{
    const size_t row = Grid_Marked / Across();
    const float top = static_cast<float>(row) * CellHeight();
    const float bottom = top + CellHeight() + Grid_NameHeight * Screen_LetterScale();
    ScrollTo(std::clamp(scroll, std::min(bottom - Screen_Height(), top), top), files.size());
}

void Grid_Move(const std::vector<FILES_ENTRY> &files, int columns, int rows, int pages)
{
    if (files.empty())
        return;
    const auto page = static_cast<int64_t>(std::max(Screen_Height() / CellHeight(), 1.0F));
    const int64_t by = columns + static_cast<int64_t>(Across()) * (rows + pages * page);
    const int64_t to = static_cast<int64_t>(Grid_Marked) + by;
    Grid_Marked =
        static_cast<size_t>(std::clamp<int64_t>(to, 0, static_cast<int64_t>(files.size()) - 1));
    Grid_Show(files);
}

void Grid_Wheel(const std::vector<FILES_ENTRY> &files, int32_t steps)
{
    if (steps != 0)
        ScrollTo(scroll - static_cast<float>(steps) * CellHeight() / 2, files.size());
}

std::optional<size_t> Grid_At(const std::vector<FILES_ENTRY> &files, float x, float y)
{
    const float column = std::floor((x - Left()) / CellWidth());
    const float row = std::floor((y + scroll) / CellHeight());
    if (column < 0 || column >= static_cast<float>(Across()) || row < 0)
        return std::nullopt;
    const auto n = static_cast<size_t>(row) * Across() + static_cast<size_t>(column);
    return n < files.size() ? std::optional(n) : std::nullopt;
}

bool Grid_HasChanged()
{
    return moved || seenDone != Ahead_Done();
}

static void Drop(CELL &cell)
{
    if (cell.Texture != 0)
        GLFEW_DestroyTexture(cell.Texture);
    Screen_DropLabel(cell.Name);
    Screen_DropLabel(cell.Reason);
}

void Grid_Leave()
{
    for (auto &[n, cell] : cells)
        Drop(cell);
    cells.clear();
    asked = SIZE_MAX;
    moved = true;
}

// Those in sight first, then the following ones.
static void Ask(const std::vector<FILES_ENTRY> &files, size_t first)
{
    if (asked == first && askedCount == files.size())
        return;
    asked = first;
    askedCount = files.size();
    std::vector<AHEAD_KEY> keys;
    for (size_t i = 0; i < std::min(files.size(), Grid_MaxAhead); i++)
        keys.push_back({files[(first + i) % files.size()].Path, VIEWER_SMALL, 0});
    Ahead_Want(std::move(keys));
}

// The text in lines that fit a cell, broken at blanks.
static std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        word = Sheet_Cut(word, Grid_NameLetters);
        if (lines.empty() || lines.back().size() + 1 + word.size() > Grid_NameLetters)
            lines.push_back(word);
        else
            lines.back() += " " + word;
    }
    if (lines.size() > Grid_MaxReasonLines) {
        lines.resize(Grid_MaxReasonLines);
        lines.back() = "...";
    }
    return lines;
}

static void Fill(CELL &cell, const FILES_ENTRY &file)
{
    if (cell.Path != file.Path) {
        Drop(cell);
        cell = {};
        cell.Path = file.Path;
        const std::string name = Sheet_Cut(
            Sheet_Latin2(std::filesystem::path(file.Path).filename().string()), Grid_NameLetters);
        Screen_SetLabel(cell.Name, {&name, 1});
    }
    if (cell.Texture != 0)
        return;
    const auto small = Ahead_Find({file.Path, VIEWER_SMALL, 0});
    if (!small)
        return;
    if (small->Thumbnail.Width == 0) {
        Screen_SetLabel(cell.Reason, Lines(Sheet_Latin2(small->Reason)));
        return;
    }
    const VIEWER_IMAGE &image = small->Thumbnail;
    cell.Texture = GLFEW_MakeTexture(image.Pixels.data(), image.Width, image.Height);
    cell.Width = static_cast<float>(image.Width) * Screen_LetterScale();
    cell.Height = static_cast<float>(image.Height) * Screen_LetterScale();
}

static void PaintCell(const CELL &cell, float x, float y, bool marked)
{
    const float side = Viewer_SmallSide * Screen_LetterScale();
    if (marked)
        Screen_Draw(markTexture, {x - 4, y - 4, side + 8, 0, 0, CellHeight() - 4}, SCREEN_DRAWN);
    if (cell.Texture != 0)
        Screen_Draw(cell.Texture,
                    {x + std::floor((side - cell.Width) / 2),
                     y + std::floor((side - cell.Height) / 2), cell.Width, 0, 0, cell.Height},
                    SCREEN_CHECKERED);
    else
        Screen_DrawLabel(cell.Reason, x + std::floor((side - cell.Reason.Width) / 2),
                         y + std::floor((side - cell.Reason.Height) / 2));
    Screen_DrawLabel(cell.Name, x + std::floor((side - cell.Name.Width) / 2), y + side);
}

void Grid_Paint(const std::vector<FILES_ENTRY> &files)
{
    moved = false;
    if (files.empty())
        return;
    Grid_Marked = std::min(Grid_Marked, files.size() - 1);
    const auto firstRow = static_cast<size_t>(scroll / CellHeight());
    const auto rows = static_cast<size_t>(Screen_Height() / CellHeight()) + 2;
    const size_t first = firstRow * Across();
    Ask(files, first);
    seenDone = Ahead_Done();  // from here on it only grows
    if (cells.size() > Grid_MaxCells) {
        for (auto &[n, cell] : cells)
            Drop(cell);
        cells.clear();
    }
    if (markTexture == 0) {
        constexpr std::array<uint8_t, 4> blue = {80, 140, 220, 255};
        markTexture = GLFEW_MakeTexture(blue.data(), 1, 1);
    }
    for (size_t n = first; n < std::min(files.size(), first + rows * Across()); n++) {
        CELL &cell = cells[n];
        Fill(cell, files[n]);
        const size_t row = n / Across(), column = n % Across();
        const float x = Left() + static_cast<float>(column) * CellWidth() + Grid_Gap / 2;
        const float y = static_cast<float>(row) * CellHeight() - scroll + Grid_Gap;
        PaintCell(cell, x, std::floor(y), n == Grid_Marked);
    }
    const size_t all = std::min(files.size(), Grid_MaxAhead);
    const std::string line =
        std::to_string(Grid_Marked + 1) + " of " + std::to_string(files.size()) + "  " +
        Sheet_Cut(Sheet_Latin2(files[Grid_Marked].Path), 60) +
        (seenDone < all ? "  decoded " + std::to_string(seenDone) + " of " + std::to_string(all)
                        : "");
    Screen_SetLabel(progress, {&line, 1});
    Screen_DrawLabel(progress, 0, Screen_Height() - progress.Height);
}
