// The record of the last failure: one, in fixed memory, since the reason must be told when there is
// no memory left, too.
#include "fe/failure.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "internal.h"
#include "utf8.h"

namespace fe {

failure_state g_failure_state = failure_state::none;

namespace {

std::array<char, 64> g_function;
std::array<char, 64> g_within;
std::array<char, 256> g_reason;
std::array<char, 128> g_value;
fe_failure g_failure = {EINVAL, 0, g_function.data(), g_within.data(), g_reason.data(), nullptr};

bool is_control(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

// Copies whole characters, as many as fit.
template <size_t size>
void keep(std::array<char, size> &to, std::string_view from) {
    size_t length = 0;
    while (length < from.size()) {
        size_t next = length + first_length(from.substr(length));
        if (next >= size) break;
        length = next;
    }
    for (size_t i = 0; i < length; ++i)
        to[i] = is_control(from[i]) ? '?' : from[i];
    to[length] = '\0';
}

void begin(int error) {
    g_failure_state = failure_state::failing;
    g_failure.error = error;
    g_failure.value = nullptr;
    g_function[0] = g_within[0] = g_reason[0] = '\0';
}

}  // namespace

void note_failed_call(const fe_def *fed) {
    if (errno == 0) errno = EINVAL;
    if (g_failure_state != failure_state::failing) begin(errno);
    if (fed->private_data == nullptr) return;
    if (g_function[0] == '\0') keep(g_function, fed->name);
    if (g_within[0] == '\0' && fed->function == call_user_function) keep(g_within, fed->name);
}

}  // namespace fe

extern "C" {

using namespace fe;

fe_node *fe_fail(int error, const char *value, const char *format, ...) {
    if (g_failure_state != failure_state::failing) {
        std::array<char, 512> reason;
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(reason.data(), reason.size(), format, arguments);
        va_end(arguments);
        begin(error);
        keep(g_reason, reason.data());
        if (value != nullptr) {
            keep(g_value, value);
            g_failure.value = g_value.data();
        }
    }
    errno = error;
    return nullptr;
}

const fe_failure *fe_last_failure(void) {
    if (g_failure_state == failure_state::none) return nullptr;
    g_failure.forgiven = g_failure_state == failure_state::forgiven ? 1 : 0;
    return &g_failure;
}

void fe_forget_failure(void) {
    g_failure_state = failure_state::none;
}
}
