#include "ucfgsh/output.h"

#include <array>
#include <cstdio>
#include <utility>

#include "ucfgd/escape.h"
#include "ucfgsh/pager.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

/* In the order of `style`. */
constexpr std::array k_colors{"", "\033[36m", "", "\033[31m", "\033[32m", "\033[2m", "\033[1m"};

/* Whether the library's lenient decoder accepts these bytes is one thing; JSON needs shortest forms
 * below the surrogates' gap and above it. */
bool is_strict(int code, int length) {
    if (code < 0) return false;
    if (code >= 0xd800 && code <= 0xdfff) return false;
    int shortest = 4;
    if (code < 0x80)
        shortest = 1;
    else if (code < 0x800)
        shortest = 2;
    else if (code < 0x10000)
        shortest = 3;
    return code <= 0x10ffff && length == shortest;
}

std::string valid_utf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        int length = static_cast<int>(std::min<size_t>(text.size(), 4));
        int code = getUTF8Char(text.data(), &length);
        bool fine = is_strict(code, length);
        size_t used = fine ? static_cast<size_t>(length) : 1;
        if (fine)
            valid += text.substr(0, used);
        else
            valid += "\xef\xbf\xbd";
        text.remove_prefix(used);
    }
    return valid;
}

}  // namespace

std::string output::paint(style look, std::string_view text) const {
    std::string clean = tty_ || color_ ? printable(text) : std::string{text};
    const char *color = k_colors[static_cast<size_t>(look)];
    if (!color_ || !*color || clean.empty()) return clean;
    return color + clean + "\033[0m";
}

void output::line(std::string_view text) {
    text_ += text;
    text_ += '\n';
}

void output::now(std::string_view text) {
    flush();
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fputc('\n', stdout) == EOF ||
        fflush(stdout) != 0)
        failed_ = true;
}

void output::begin_answer(std::string_view command) {
    command_ = command;
}

void output::document(owned_json members) {
    if (!answer_) answer_.reset(json_object());
    json_object_update(answer_.get(), members.get());
}

void output::add_error(owned_json error) {
    if (!errors_) errors_.reset(json_array());
    json_array_append_new(errors_.get(), error.release());
}

bool output::has_errors() const {
    return errors_ != nullptr;
}

void output::end_answer(bool ok) {
    if (!json_ || (command_.empty() && !answer_ && !errors_)) return;
    owned_json object = json_object_of({{"command", std::exchange(command_, {})}});
    json_put(object, "ok", owned_json{json_boolean(ok)});
    if (answer_) json_object_update(object.get(), answer_.get());
    /* What was refused at first and has been done then is no error. */
    if (!ok) json_put(object, "errors", errors_ ? std::move(errors_) : owned_json{json_array()});
    answer_.reset();
    errors_.reset();
    owned_str text{json_dumps(object.get(), tty_ ? JSON_INDENT(2) : JSON_COMPACT)};
    if (text) line(text.get());
}

void output::stream(const char *from, std::string_view text) {
    owned_json object = json_object_of({{"command", command_}, {"stream", from}});
    json_put(object, "text", json_text(text));
    owned_str whole{json_dumps(object.get(), JSON_COMPACT)};
    if (whole) now(whole.get());
}

bool output::flush() {
    if (text_.empty()) return !failed_;
    bool paged = pager_ && tty_ && needs_pager(text_) && page(text_);
    if (!paged &&
        (fwrite(text_.data(), 1, text_.size(), stdout) != text_.size() || fflush(stdout) != 0))
        failed_ = true;
    text_.clear();
    return !failed_;
}

void output::complain(std::string_view text) {
    flush();
    std::string clean = printable(text);
    fprintf(stderr, "%s\n", clean.c_str());
}

owned_json json_text(std::string_view text) {
    std::string valid = valid_utf8(text);
    return owned_json{json_stringn(valid.data(), valid.size())};
}

owned_json json_list(const std::vector<std::string> &items) {
    owned_json list{json_array()};
    for (const std::string &item : items)
        json_array_append_new(list.get(), json_text(item).release());
    return list;
}

owned_json json_maybe(const char *text) {
    return text ? json_text(text) : owned_json{json_null()};
}

void json_put(const owned_json &object, const char *key, owned_json value) {
    json_object_set_new(object.get(), key, value.release());
}

owned_json json_object_of(std::initializer_list<std::pair<const char *, std::string>> members) {
    owned_json object{json_object()};
    for (const auto &[key, text] : members)
        json_put(object, key, json_text(text));
    return object;
}

}  // namespace ucfgsh
