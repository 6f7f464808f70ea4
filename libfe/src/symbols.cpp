// Names of variables and functions as pointers that can be compared. Names of one character, which
// is what the positional variables are, need no table at all.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "internal.h"

namespace fe {

namespace {

constexpr size_t k_first_buckets = 256;

// Symbols that nobody uses any more stay for a while: the next request brings the same names.
struct symbol_table {
    symbol_ptr *buckets = nullptr;
    size_t size = 0;
    size_t count = 0;
    size_t unused = 0;
    uint32_t made = 0;
};
constexpr size_t k_most_unused = 64;  // and a quarter of the table
symbol_table g_symbols;

constexpr auto k_short_symbols = [] {
    std::array<fe_symbol_record, 128> result{};
    for (size_t i = 0; i < result.size(); ++i) {
        result[i].uses = k_permanent;
        result[i].length = 1;
        result[i].number = static_cast<uint32_t>(i);
        result[i].name[0] = static_cast<char>(i);
    }
    return result;
}();
std::array<fe_symbol_record, 128> g_short_symbols = k_short_symbols;

uint64_t load(const char *bytes, size_t count) {
    uint64_t word = 0;
    memcpy(&word, bytes, count);
    return word;
}

uint64_t mix(uint64_t hash, uint64_t word) {
    hash = (hash ^ word) * 0x9E37'79B9'7F4A'7C15U;
    return hash ^ (hash >> 32);
}

// Eight bytes at a time; the last ones may be read twice, which does no harm.
uint32_t hash_of(std::string_view name) {
    const char *bytes = name.data();
    const size_t size = name.size();
    uint64_t hash = size;
    if (size >= 8) {
        for (size_t at = 0; at + 8 < size; at += 8)
            hash = mix(hash, load(bytes + at, 8));
        return static_cast<uint32_t>(mix(hash, load(bytes + size - 8, 8)));
    }
    if (size >= 4) {
        return static_cast<uint32_t>(mix(hash, load(bytes, 4) << 32 | load(bytes + size - 4, 4)));
    }
    for (char c : name)
        hash = hash << 8 | static_cast<unsigned char>(c);
    return static_cast<uint32_t>(mix(hash, 0));
}

symbol_ptr find_in_table(std::string_view name, uint32_t hash) {
    if (g_symbols.size == 0) return nullptr;
    symbol_ptr symbol = g_symbols.buckets[hash & (g_symbols.size - 1)];
    while (symbol != nullptr && (symbol->hash != hash || symbol->length != name.size() ||
                                 memcmp(symbol->name, name.data(), name.size()) != 0)) {
        symbol = symbol->next_in_bucket;
    }
    return symbol;
}

int grow_table() {
    size_t size = g_symbols.size == 0 ? k_first_buckets : g_symbols.size * 2;
    auto **buckets = new (std::nothrow) symbol_ptr[size]();
    if (buckets == nullptr) return -1;
    for (size_t i = 0; i < g_symbols.size; ++i) {
        while (symbol_ptr symbol = g_symbols.buckets[i]) {
            g_symbols.buckets[i] = symbol->next_in_bucket;
            symbol_ptr &bucket = buckets[symbol->hash & (size - 1)];
            symbol->next_in_bucket = bucket;
            bucket = symbol;
        }
    }
    delete[] g_symbols.buckets;
    g_symbols.buckets = buckets;
    g_symbols.size = size;
    return 0;
}

size_t bytes_of(size_t name_length) {
    return sizeof(fe_symbol_record) + name_length;
}

void drop_unused() {
    for (size_t i = 0; i < g_symbols.size; ++i) {
        symbol_ptr *link = &g_symbols.buckets[i];
        while (symbol_ptr symbol = *link) {
            if (symbol->uses != 0) {
                link = &symbol->next_in_bucket;
                continue;
            }
            *link = symbol->next_in_bucket;
            release_bytes(bytes_of(symbol->length));
            free(symbol);
            --g_symbols.count;
        }
    }
    g_symbols.unused = 0;
}

bool is_short(std::string_view name) {
    return name.size() == 1 && static_cast<unsigned char>(name[0]) < g_short_symbols.size();
}

}  // namespace

symbol_ptr find_symbol(std::string_view name) {
    if (is_short(name)) return &g_short_symbols[static_cast<unsigned char>(name[0])];
    return find_in_table(name, hash_of(name));
}

symbol_ptr acquire_symbol(std::string_view name) {
    if (is_short(name)) {
        return &g_short_symbols[static_cast<unsigned char>(name[0])];
    }
    if (name.empty() || name.size() > k_max_text) {
        errno = EINVAL;
        return nullptr;
    }
    uint32_t hash = hash_of(name);
    if (symbol_ptr symbol = find_in_table(name, hash)) {
        retain_symbol(symbol);
        return symbol;
    }
    if (g_symbols.count >= g_symbols.size && grow_table() != 0 && g_symbols.size == 0) {
        return nullptr;
    }
    size_t bytes = bytes_of(name.size());
    if (reserve_bytes(bytes) != 0) return nullptr;
    auto *symbol = static_cast<symbol_ptr>(calloc(1, bytes));
    if (symbol == nullptr) {
        release_bytes(bytes);
        return nullptr;
    }
    symbol->hash = hash;
    symbol->number = g_symbols.made++;
    symbol->uses = 1;
    symbol->impure = false;
    symbol->length = static_cast<uint32_t>(name.size());
    memcpy(reinterpret_cast<char *>(symbol) + offsetof(fe_symbol_record, name), name.data(),
           name.size());
    symbol_ptr &bucket = g_symbols.buckets[hash & (g_symbols.size - 1)];
    symbol->next_in_bucket = bucket;
    bucket = symbol;
    ++g_symbols.count;
    return symbol;
}

void add_use(symbol_ptr symbol) {
    if (symbol->uses++ == 0) --g_symbols.unused;
}

void drop_use(symbol_ptr symbol) {
    if (--symbol->uses == 0 && ++g_symbols.unused > k_most_unused + g_symbols.count / 4) {
        drop_unused();
    }
}

}  // namespace fe

extern "C" fe_symbol fe_intern(const char *name) {
    fe_symbol_record *symbol = fe::acquire_symbol(name);
    if (symbol != nullptr && !fe::is_permanent(symbol)) symbol->uses = fe::k_permanent;
    return symbol;
}
