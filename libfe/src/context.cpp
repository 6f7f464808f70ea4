// Variables. A context keeps its first variables in itself, names apart from values so that looking
// one up reads two or three cache lines; the rest, which only arguments by the dozen or expressions
// that make names up need, go to a map. Released contexts are kept for the next request.
#include "fe/context.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <unordered_map>

#include "internal.h"

namespace fe {

namespace {

constexpr unsigned int k_own_variables = 16;
constexpr unsigned int k_most_kept_contexts = 64;
constexpr size_t k_map_entry_bytes = 128;

struct value_slot {
    const char *text;
    uint32_t length;
    uint32_t capacity;  // of a text that is the slot's own but outside it; 0 for others
    std::array<char, 24> inside;
};

using variable_map = std::unordered_map<symbol_ptr, value_slot>;

struct context_record {
    fe_context base;
    unsigned int count;
    uint32_t counted_names;  // one bit for each that is to be given back
    bool owns_texts;
    context_kind kind;
    uint64_t seen;  // one bit for every name, so that most misses need no search
    variable_map *more;
    context_record *next_kept;
    std::array<symbol_ptr, k_own_variables> names;
    std::array<value_slot, k_own_variables> values;
};
static_assert(offsetof(context_record, base) == 0);

context_record *g_kept_contexts = nullptr;
unsigned int g_kept_count = 0;

context_record *record_of(fe_context *ctx) {
    return reinterpret_cast<context_record *>(ctx);
}

uint64_t bit_of(const fe_symbol_record *name) {
    return uint64_t{1} << (name->number % 64);
}

[[gnu::noinline]] value_slot *search_slot(context_record *record, symbol_ptr name) {
    for (unsigned int i = 0; i < record->count; ++i) {
        if (record->names[i] != name) continue;
        name->place = i;
        return &record->values[i];
    }
    if (record->more == nullptr) return nullptr;
    auto found = record->more->find(name);
    return found == record->more->end() ? nullptr : &found->second;
}

value_slot *find_slot(context_record *record, symbol_ptr name) {
    if ((record->seen & bit_of(name)) == 0) return nullptr;
    const uint32_t place = name->place;
    if (place < record->count && record->names[place] == name) return &record->values[place];
    return search_slot(record, name);
}

void clear_new(value_slot &slot) {
    slot.text = "";
    slot.length = 0;
    slot.capacity = 0;
}

void clear_slot(value_slot &slot) {
    if (slot.capacity == 0) return;
    release_bytes(slot.capacity);
    free(const_cast<char *>(slot.text));
    slot.capacity = 0;
}

// The new value may be part of the old one.
int assign_slot(value_slot &slot, std::string_view value) {
    char *to = slot.capacity == 0 ? slot.inside.data() : const_cast<char *>(slot.text);
    const size_t room = slot.capacity == 0 ? slot.inside.size() : slot.capacity;
    if (value.size() >= room) {
        const size_t bytes = value.size() + value.size() / 4 + 1;
        if (value.size() > k_max_text || reserve_bytes(bytes) != 0) {
            errno = ENOMEM;
            return -1;
        }
        to = static_cast<char *>(malloc(bytes));
        if (to == nullptr) {
            release_bytes(bytes);
            return -1;
        }
        memcpy(to, value.data(), value.size());
        clear_slot(slot);
        slot.capacity = static_cast<uint32_t>(bytes);
    } else {
        copy_text(to, value);
    }
    to[value.size()] = '\0';
    slot.text = to;
    slot.length = static_cast<uint32_t>(value.size());
    return 0;
}

[[gnu::noinline]] value_slot *add_to_map(context_record *record, symbol_ptr name) {
    if (reserve_bytes(k_map_entry_bytes) != 0) return nullptr;
    try {
        if (record->more == nullptr) record->more = new variable_map;
        value_slot &slot = (*record->more)[name];
        clear_new(slot);
        return &slot;
    } catch (const std::bad_alloc &) {
        release_bytes(k_map_entry_bytes);
        errno = ENOMEM;
        return nullptr;
    }
}

// For a name that the context does not have; whoever calls it counts the use of the name.
value_slot *append_slot(context_record *record, symbol_ptr name) {
    record->seen |= bit_of(name);
    const unsigned int place = record->count++;
    record->names[place] = name;
    value_slot *slot = &record->values[place];
    clear_new(*slot);
    return slot;
}

value_slot *find_or_add_slot(context_record *record, symbol_ptr name) {
    if (value_slot *slot = find_slot(record, name)) return slot;
    retain_symbol(name);
    if (record->count == k_own_variables) {
        record->seen |= bit_of(name);
        value_slot *slot = add_to_map(record, name);
        if (slot == nullptr) release_symbol(name);
        return slot;
    }
    if (!is_permanent(name)) record->counted_names |= uint32_t{1} << record->count;
    return append_slot(record, name);
}

// Whether a variable goes straight to a slot of its own: those of a request are new to their
// context, and their names are never released.
bool is_simple(const context_record *record, const fe_symbol_record *name) {
    return (record->seen & bit_of(name)) == 0 && record->count < k_own_variables &&
           is_permanent(name);
}

void lend(value_slot &slot, const char *value, size_t length) {
    slot.text = value;
    slot.length = static_cast<uint32_t>(length);
}

[[gnu::noinline]] int lend_again(context_record *record, symbol_ptr name, const char *value,
                                 size_t length) {
    value_slot *slot = find_or_add_slot(record, name);
    if (slot == nullptr) return -1;
    clear_slot(*slot);
    lend(*slot, value, length);
    return 0;
}

void clear_texts(context_record *record) {
    for (unsigned int i = 0; i < record->count; ++i)
        clear_slot(record->values[i]);
}

void drop_map(context_record *record) {
    for (auto &[name, slot] : *record->more) {
        clear_slot(slot);
        release_bytes(k_map_entry_bytes);
        release_symbol(name);
    }
    delete record->more;
    record->more = nullptr;
}

context_record *take_context() {
    if (context_record *record = g_kept_contexts) {
        g_kept_contexts = record->next_kept;
        --g_kept_count;
        return record;
    }
    return static_cast<context_record *>(malloc(sizeof(context_record)));
}

fe_context *new_context(fe_context *parent, void *user_data, context_kind kind) {
    context_record *record = take_context();
    if (record == nullptr) return nullptr;
    record->base.parent = parent;
    record->base.user_data = user_data;
    record->count = 0;
    record->counted_names = 0;
    record->owns_texts = false;
    record->seen = 0;
    record->kind = kind;
    record->more = nullptr;
    return &record->base;
}

}  // namespace

fe_context *create_inner_context(fe_context *parent, context_kind kind) {
    return new_context(parent, parent == nullptr ? nullptr : parent->user_data, kind);
}

fe_context *method_context(fe_context *ctx) {
    while (record_of(ctx)->kind != context_kind::method && ctx->parent != nullptr)
        ctx = ctx->parent;
    return ctx;
}

fe_context *function_context(fe_context *ctx) {
    while (record_of(ctx)->kind == context_kind::loop && ctx->parent != nullptr)
        ctx = ctx->parent;
    return ctx;
}

int set_variable(fe_context *ctx, symbol_ptr name, std::string_view value) {
    context_record *record = record_of(ctx);
    value_slot *slot =
        is_simple(record, name) ? append_slot(record, name) : find_or_add_slot(record, name);
    if (slot == nullptr || assign_slot(*slot, value) != 0) return -1;
    if (slot->capacity != 0) record->owns_texts = true;
    return 0;
}

std::string_view get_variable(const fe_context *ctx, const fe_symbol_record *name) {
    if (name->impure) ++g_impure_count;
    for (; ctx != nullptr; ctx = ctx->parent) {
        const value_slot *slot =
            find_slot(record_of(const_cast<fe_context *>(ctx)), const_cast<symbol_ptr>(name));
        if (slot != nullptr) return {slot->text, slot->length};
    }
    return {};
}

}  // namespace fe

extern "C" {

using namespace fe;

fe_context *create_fe_context(fe_context *parent, void *user_data) {
    return new_context(parent, user_data, context_kind::method);
}

void destroy_fe_context(fe_context *ctx) {
    if (ctx == nullptr) return;
    context_record *record = record_of(ctx);
    if (record->owns_texts) clear_texts(record);
    for (uint32_t names = record->counted_names; names != 0; names &= names - 1)
        release_symbol(record->names[static_cast<size_t>(std::countr_zero(names))]);
    if (record->more != nullptr) drop_map(record);
    if (k_recycle && g_kept_count < k_most_kept_contexts) {
        record->next_kept = g_kept_contexts;
        g_kept_contexts = record;
        ++g_kept_count;
    } else {
        free(record);
    }
}

int fe_set(fe_context *ctx, const char *name, const char *value) {
    const bool is_short = name[0] != '\0' && name[1] == '\0';
    symbol_ptr known = find_symbol(is_short ? std::string_view(name, 1) : std::string_view(name));
    if (known != nullptr) return fe_set_symbol(ctx, known, value);
    symbol_ptr made = acquire_symbol(name);
    if (made == nullptr) return -1;
    int result = fe_set_symbol(ctx, made, value);
    release_symbol(made);
    return result;
}

const char *fe_get(const fe_context *ctx, const char *name) {
    symbol_ptr symbol = find_symbol(name);
    return symbol == nullptr ? nullptr : fe_get_symbol(ctx, symbol);
}

int fe_set_symbol(fe_context *ctx, fe_symbol name, const char *value) {
    if (value == nullptr) value = "";
    return set_variable(ctx, const_cast<symbol_ptr>(name), value);
}

int fe_lend_symbol(fe_context *ctx, fe_symbol name, const char *value, size_t length) {
    context_record *record = record_of(ctx);
    auto *symbol = const_cast<symbol_ptr>(name);
    if (!is_simple(record, symbol)) return lend_again(record, symbol, value, length);
    lend(*append_slot(record, symbol), value, length);
    return 0;
}

const char *fe_get_symbol(const fe_context *ctx, fe_symbol name) {
    return get_variable(ctx, name).data();
}
}
