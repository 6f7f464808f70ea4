#include "ucfgsh/columns.h"

#include <algorithm>
#include <cwchar>

#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr size_t k_gap = 2;
constexpr size_t k_least_help = 12; /* less of it says nothing */

/* The next character: how many bytes it has, and how many columns. */
struct character {
    size_t bytes, columns;
};

character first_character(std::string_view text) {
    wchar_t wide = 0;
    mbstate_t state{};
    size_t used = mbrtowc(&wide, text.data(), text.size(), &state);
    if (used == 0 || used > text.size()) return {1, 1};
    int columns = wcwidth(wide);
    return {used, columns < 0 ? 1 : static_cast<size_t>(columns)};
}

/* The bytes of what fits. */
size_t fitting(std::string_view text, size_t width) {
    size_t bytes = 0;
    for (size_t taken = 0; bytes < text.size();) {
        character next = first_character(text.substr(bytes));
        if (taken + next.columns > width) break;
        taken += next.columns;
        bytes += next.bytes;
    }
    return bytes;
}

size_t widest(const std::vector<described> &rows, std::string described::*column) {
    size_t width = 0;
    for (const described &row : rows)
        width = std::max(width, display_width(row.*column));
    return width;
}

}  // namespace

size_t display_width(std::string_view text) {
    size_t width = 0;
    while (!text.empty()) {
        character next = first_character(text);
        width += next.columns;
        text.remove_prefix(next.bytes);
    }
    return width;
}

std::string cut(const std::string &text, size_t width) {
    if (display_width(text) <= width) return text;
    constexpr std::string_view k_mark = "..";
    if (width <= k_mark.size()) return text.substr(0, fitting(text, width));
    return text.substr(0, fitting(text, width - k_mark.size())) + std::string{k_mark};
}

std::string pad(const std::string &text, size_t width) {
    std::string shown = cut(text, width);
    return shown + std::string(width - display_width(shown), ' ');
}

std::string as_table(const std::vector<described> &rows, size_t width) {
    size_t room = width > 2 * k_gap ? width - k_gap : k_gap;
    size_t names = std::min(widest(rows, &described::name), room);
    size_t rest = room - names;
    size_t values = std::min(widest(rows, &described::value), rest > k_gap ? rest - k_gap : 0);
    size_t helps = widest(rows, &described::help);
    /* Where both cannot be whole, the value leaves the help half of the room. */
    if (helps > 0 && values > 0 && values + helps + 2 * k_gap > rest)
        values = std::min(values, std::max(rest / 3, rest - std::min(rest, helps + 2 * k_gap)));
    size_t before = values > 0 ? values + 2 * k_gap : k_gap;
    helps = rest > before ? rest - before : 0;
    if (helps < k_least_help) helps = 0;
    std::string text;
    for (const described &row : rows) {
        std::string line(k_gap, ' ');
        line += pad(row.name, names);
        if (values > 0) line += std::string(k_gap, ' ') + pad(row.value, values);
        if (helps > 0) line += std::string(k_gap, ' ') + cut(row.help, helps);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string in_columns(const std::vector<std::string> &items, size_t width, size_t rows,
                       size_t &shown) {
    std::vector<std::string> cells;
    size_t widest_cell = 1;
    auto columns = [&] { return std::max<size_t>(width / (widest_cell + k_gap), 1); };
    /* Those that there is no room for do not make the others wider. */
    for (size_t i = 0; i < items.size() && i < columns() * rows; i++) {
        cells.push_back(printable(items[i]));
        widest_cell = std::max(widest_cell, display_width(cells.back()));
    }
    shown = std::min(cells.size(), columns() * rows);
    std::string text;
    for (size_t i = 0; i < shown; i++) {
        bool last = (i + 1) % columns() == 0 || i + 1 == shown;
        text += last ? cells[i] + "\n" : pad(cells[i], widest_cell + k_gap);
    }
    return text;
}

}  // namespace ucfgsh
