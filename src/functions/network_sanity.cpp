#include "functions/network_sanity.h"

#include <arpa/inet.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
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
constexpr size_t k_longest_ipv6 = 45;
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
std::string_view take_run(std::string_view &text, size_t longest, predicate belongs) {
    size_t n = 0;
    while (n < text.size() && n < longest && belongs(text[n]))
        n++;
    std::string_view run = text.substr(0, n);
    text.remove_prefix(n);
    return run;
}

/* A short text with the end that C wants; a longer one is cut. */
class short_text {
  public:
    explicit short_text(std::string_view text) {
        text.copy(characters_.data(), characters_.size() - 1);
    }
    const char *c_str() const { return characters_.data(); }

  private:
    std::array<char, 64> characters_{};
};

bool take_slash(std::string_view &text) {
    if (text.empty() || text.front() != '/') return false;
    text.remove_prefix(1);
    return true;
}

/* The number at the start of the text, -1 when it is above the limit; no digits count as 0. */
int number_up_to(std::string_view text, int limit) {
    int n = 0;
    for (char c : text) {
        if (!is_digit(c)) break;
        n = 10 * n + (c - '0');
        if (n > limit) return -1;
    }
    return n;
}

/* The characters of a text in the locale, one after the other, as many as there are. */
class wide_text {
  public:
    explicit wide_text(const char *text) : rest_(text) {}

    /* False at the end, and at a character that is none. */
    bool next(wchar_t &c) {
        if (!rest_.empty() &&
            static_cast<signed char>(rest_.front()) > 0) { /* ASCII is the same in all locales */
            c = static_cast<wchar_t>(rest_.front());
            rest_.remove_prefix(1);
            return true;
        }
        size_t n = mbrtowc(&c, rest_.data(), rest_.size() + 1, &state_);
        broken_ = n > rest_.size();
        if (n == 0 || broken_) return false;
        rest_.remove_prefix(n);
        return true;
    }
    bool broken() const { return broken_; }

  private:
    std::string_view rest_;
    mbstate_t state_{};
    bool broken_ = false;
};

/* The part of a name up to its end or the next dot. */
struct label {
    size_t length = 0;
    bool valid = false; /* letters, digits and "-", which is neither first nor last */
    bool ends_in_dot = false;
};

label take_label(wide_text &text) {
    label taken;
    bool valid = true;
    bool alphanumeric = false; /* the character before */
    for (wchar_t c; text.next(c); taken.length++) {
        taken.ends_in_dot = c == L'.';
        if (taken.ends_in_dot) break;
        const bool hyphen = c == L'-' && taken.length > 0;
        alphanumeric = iswalnum(static_cast<wint_t>(c)) != 0;
        if (!hyphen && !alphanumeric) valid = false;
    }
    taken.valid = valid && alphanumeric && !text.broken();
    return taken;
}

/* A name that is one label of at most so many characters. */
bool is_host_name(const char *s, size_t longest) {
    if (s == nullptr) return false;
    errno_guard keep;
    wide_text text{s};
    label only = take_label(text);
    return only.valid && !only.ends_in_dot && only.length <= longest;
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
    const short_text address{take_run(text, k_longest_ipv4, is_dotted)};
    if (!take_slash(text) || !isip(address.c_str())) return 0;
    std::string_view length = take_run(text, k_longest_ipv4, is_digit);
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
    const short_text address{take_run(text, k_longest_ipv4, is_dotted)};
    if (!isip(address.c_str()) || !take_slash(text)) return 0;
    return isnetmask(short_text{take_run(text, k_longest_ipv4, is_dotted)}.c_str());
}

int isnetwork6(const char *s) {
    if (s == nullptr || *s == '\0') return 0;
    errno_guard keep;
    std::string_view text{s};
    std::string_view address =
        take_run(text, text.size() - 1, [](char c) { return is_hex(c) || c == ':' || c == '.'; });
    if (address.size() > k_longest_ipv6 || !isip6(short_text{address}.c_str())) return 0;
    if (!take_slash(text)) return 0;
    return number_up_to(take_run(text, text.size(), is_dotted), 128) >= 0;
}

int isinnetwork(const char *net, const char *mask, const char *ip) {
    errno_guard keep;
    uint32_t bits = ipv4_of(mask);
    return (ipv4_of(ip) & bits) == (ipv4_of(net) & bits);
}

int isinsubnet(const char *subnet, const char *ip) {
    if (subnet == nullptr || ip == nullptr) return 0;
    errno_guard keep;
    const std::string_view text{subnet};
    const size_t slash = text.find('/');
    if (slash > k_longest_ipv6) return 0; /* or there is none */
    const std::string_view digits = text.substr(slash + 1);
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), is_digit)) return 0;
    const int family = text.find(':') == text.npos ? AF_INET : AF_INET6;
    std::array<unsigned char, sizeof(in6_addr)> net{};
    std::array<unsigned char, sizeof(in6_addr)> address{};
    const int length = number_up_to(digits, family == AF_INET ? 32 : 128);
    if (length < 0 ||
        inet_pton(family, short_text{text.substr(0, slash)}.c_str(), net.data()) <= 0 ||
        inet_pton(family, ip, address.data()) <= 0)
        return 0;
    const auto whole = static_cast<size_t>(length / 8);
    if (memcmp(net.data(), address.data(), whole) != 0) return 0;
    return length % 8 == 0 || ((net[whole] ^ address[whole]) >> (8 - length % 8)) == 0;
}

int ishwaddr(const char *s) {
    constexpr size_t k_length = 17;
    if (s == nullptr || strlen(s) != k_length) return 0;
    for (size_t i = 0; i < k_length; i++)
        if (i % 3 == 2 ? s[i] != ':' : !is_hex(s[i])) return 0;
    return 1;
}

int _ishostname(const char *s) {
    return is_host_name(s, SIZE_MAX);
}

int ishostname(const char *s) {
    return is_host_name(s, k_longest_label);
}

int isdomainname(const char *s) {
    if (s == nullptr) return 0;
    errno_guard keep;
    wide_text text{s};
    size_t sum = 0;
    for (bool first = true;; first = false) {
        label next = take_label(text);
        if (!first && next.length == 0 && !next.ends_in_dot && !text.broken()) return 1;
        sum += next.length;
        if (!next.valid || next.length > k_longest_label || sum > k_longest_domain) return 0;
        if (!next.ends_in_dot) return 1;
    }
}

namespace {

fe_node *fe_func_network(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() < 2) return answer_wrong_count(memory, arguments, "0");
    in_addr network{htonl(ipv4_of(arguments[0]) & ipv4_of(arguments[1]))};
    std::array<char, INET_ADDRSTRLEN> text;
    return const_node(inet_ntop(AF_INET, &network, text.data(), text.size()));
}

fe_node *fe_func_isinsubnet(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 2) return answer_wrong_count(memory, arguments, "0");
    return const_node(isinsubnet(arguments[0], arguments[1]) ? "1" : "0");
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

/* All of them are pure. */
fe_def *fe_register_network_sanity_funcs(fe_def *list) {
    auto data = [](auto function) { return reinterpret_cast<void *>(function); };
    auto add = [&list](const char *name, fe_function function, void *own) {
        list = fe_register_func(list, name, function, own);
        fe_mark_pure(list, name);
    };
    for (const auto &row : k_predicates)
        add(row.name, fe_func_sanity1, data(row.accepts));
    add("isinsubnet", fe_func_isinsubnet, nullptr);
    add("isinnetwork", fe_func_sanity3, data(isinnetwork));
    for (const auto &row : k_name_predicates)
        add(row.name, fe_func_sanity1, data(row.accepts));
    add("network", fe_func_network, nullptr);
    return list;
}
