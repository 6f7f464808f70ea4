#include "functions/network_sanity.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <wctype.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "daemon/trace.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "tree/arguments.h"
#include "ucfgd/owners.h"

/* Network sanity: predicates over texts, and one function that computes a network address. The
 * expression library wraps the predicates; they know nothing of expressions. */

namespace {

constexpr size_t k_longest_ipv4 = 15;
constexpr size_t k_longest_label = 63;
constexpr size_t k_longest_domain = 255;

/* The address in host order; zero for a text that is none. */
uint32_t ipv4_of(const char *s) {
    in_addr address{};
    if (s == nullptr || inet_pton(AF_INET, s, &address) <= 0) return 0;
    return ntohl(address.s_addr);
}

bool is_digit(char c) {
    return isdigit(static_cast<unsigned char>(c)) != 0;
}
bool is_hex(char c) {
    return isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool is_dotted(char c) {
    return is_digit(c) || c == '.';
}

/* Takes the leading run of characters that belong, at most longest of them, off the text. */
template <class predicate>
std::string take_run(std::string_view &text, size_t longest, predicate belongs) {
    size_t n = 0;
    while (n < text.size() && n < longest && belongs(text[n]))
        n++;
    std::string run{text.substr(0, n)};
    text.remove_prefix(n);
    return run;
}

bool take_slash(std::string_view &text) {
    if (text.empty() || text.front() != '/') return false;
    text.remove_prefix(1);
    return true;
}

/* The number at the start of the text, -1 when it is above the limit; no digits count as 0. */
int number_up_to(const std::string &text, int limit) {
    long n = strtol(text.c_str(), nullptr, 10);
    return n < 0 || n > limit ? -1 : static_cast<int>(n);
}

/* The text's characters; false when it is not valid in the locale. */
bool widen(const char *s, std::wstring &wide) {
    size_t n = mbstowcs(nullptr, s, 0);
    if (n == static_cast<size_t>(-1)) return false;
    wide.resize(n);
    return mbstowcs(wide.data(), s, n) == n;
}

bool is_label(std::wstring_view label) {
    if (label.empty()) return false;
    auto alphanumeric = [](wchar_t c) { return iswalnum(static_cast<wint_t>(c)) != 0; };
    if (!alphanumeric(label.front()) || !alphanumeric(label.back())) return false;
    for (wchar_t c : label)
        if (!alphanumeric(c) && c != L'-') return false;
    return true;
}

}  // namespace

int isip(const char *s) {
    in_addr address;
    errno_guard keep;
    return s != nullptr && inet_pton(AF_INET, s, &address) > 0;
}

int isip6(const char *s) {
    in6_addr address;
    errno_guard keep;
    return s != nullptr && inet_pton(AF_INET6, s, &address) > 0;
}

int isnetmask(const char *s) {
    if (!isip(s)) return 0;
    uint32_t mask = ipv4_of(s);
    int left = 31;
    for (; left >= 0 && (mask & 1) == 0; left--)
        mask >>= 1;
    for (; left >= 1; left--) {
        if ((mask & 1) == 0) return 0;
        mask >>= 1;
    }
    return 1;
}

int iscidr(const char *s) {
    if (s == nullptr) return 0;
    errno_guard keep;
    std::string_view text{s};
    std::string address = take_run(text, k_longest_ipv4, is_dotted);
    if (!take_slash(text) || !isip(address.c_str())) return 0;
    std::string length = take_run(text, k_longest_ipv4, is_digit);
    if (!text.empty()) return 0;
    int n = number_up_to(length, 32);
    if (n < 0) return 0;
    uint32_t bits = ipv4_of(address.c_str());
    if (n == 0) return bits == 0;
    return n == 32 || (bits & (UINT32_MAX >> n)) == 0;
}

int isnetwork(const char *s) {
    if (s == nullptr) return 0;
    std::string_view text{s};
    std::string address = take_run(text, k_longest_ipv4, is_dotted);
    if (!isip(address.c_str()) || !take_slash(text)) return 0;
    return isnetmask(take_run(text, k_longest_ipv4, is_dotted).c_str());
}

int isnetwork6(const char *s) {
    if (s == nullptr || *s == '\0') return 0;
    errno_guard keep;
    std::string_view text{s};
    std::string address =
        take_run(text, text.size() - 1, [](char c) { return is_hex(c) || c == ':' || c == '.'; });
    if (!isip6(address.c_str()) || !take_slash(text)) return 0;
    return number_up_to(take_run(text, text.size(), is_dotted), 128) >= 0;
}

int isinnetwork(const char *net, const char *mask, const char *ip) {
    errno_guard keep;
    uint32_t bits = ipv4_of(mask);
    return (ipv4_of(ip) & bits) == (ipv4_of(net) & bits);
}

int ishwaddr(const char *s) {
    constexpr size_t k_length = 17;
    if (s == nullptr || strlen(s) != k_length) return 0;
    for (size_t i = 0; i < k_length; i++)
        if (i % 3 == 2 ? s[i] != ':' : !is_hex(s[i])) return 0;
    return 1;
}

int _ishostname(const char *s) {
    std::wstring wide;
    errno_guard keep;
    return s != nullptr && widen(s, wide) && is_label(wide);
}

int ishostname(const char *s) {
    std::wstring wide;
    errno_guard keep;
    return s != nullptr && widen(s, wide) && wide.size() <= k_longest_label && is_label(wide);
}

int isdomainname(const char *s) {
    std::wstring wide;
    errno_guard keep;
    if (s == nullptr || !widen(s, wide) || wide.empty()) return 0;
    std::wstring_view rest{wide};
    size_t sum = 0;
    while (!rest.empty()) {
        std::wstring_view label = rest.substr(0, rest.find(L'.'));
        sum += label.size();
        if (label.size() > k_longest_label || sum > k_longest_domain || !is_label(label)) return 0;
        rest.remove_prefix(label.size() < rest.size() ? label.size() + 1 : label.size());
    }
    return 1;
}

namespace {

fe_node *fe_func_network(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    call_arguments arguments{ctx, call};
    if (arguments.count() < 2) return const_node("0");
    in_addr network{htonl(ipv4_of(arguments[0]) & ipv4_of(arguments[1]))};
    std::array<char, INET_ADDRSTRLEN> text;
    return const_node(inet_ntop(AF_INET, &network, text.data(), text.size()));
}

struct predicate_row {
    const char *name;
    int (*accepts)(const char *);
};

constexpr std::array k_predicates{
    predicate_row{"isip", isip},           predicate_row{"isip6", isip6},
    predicate_row{"isnetmask", isnetmask}, predicate_row{"iscidr", iscidr},
    predicate_row{"isnetwork", isnetwork}, predicate_row{"isnetwork6", isnetwork6},
};

constexpr std::array k_name_predicates{
    predicate_row{"ishwaddr", ishwaddr},
    predicate_row{"ishostname", ishostname},
    predicate_row{"_ishostname", _ishostname},
    predicate_row{"isdomainname", isdomainname},
};

}  // namespace

fe_def *fe_register_network_sanity_funcs(fe_def *list) {
    auto data = [](auto function) { return reinterpret_cast<void *>(function); };
    for (const auto &row : k_predicates)
        list = fe_register_func(list, row.name, fe_func_sanity1, data(row.accepts));
    list = fe_register_func(list, "isinnetwork", fe_func_sanity3, data(isinnetwork));
    for (const auto &row : k_name_predicates)
        list = fe_register_func(list, row.name, fe_func_sanity1, data(row.accepts));
    return fe_register_func(list, "network", fe_func_network, nullptr);
}
