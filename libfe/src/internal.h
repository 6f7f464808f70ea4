// What the source files of the library share: the records behind the public ones, the allocator of
// nodes, and the meter of the running evaluation. Nothing here is for users of the library.
#ifndef FE_INTERNAL_H
#define FE_INTERNAL_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "fe/fe.h"

// A name in comparable form. Symbols are counted: variables, definitions and parsed nodes hold
// one each, so that names made up by a running expression disappear with its context.
struct fe_symbol_record {
    fe_symbol_record *next_in_bucket;
    fe_def_internal *newest_definition;
    uint32_t hash;
    uint32_t uses;
    uint32_t length;
    uint32_t number;  // as they came: tells the few of a request apart better than a hash does
    uint32_t place;   // in the context that it was found in last, where it is most often again
    bool impure;      // as purity.h means it
    char name[8];     // longer names go on behind the record
};

// What a definition is beside its public fields.
struct fe_def_internal {
    fe_def def;
    fe_symbol_record *name;
    fe_def_internal *older;      // the definition of that name before this one, in whatever list
    struct fe_list_state *list;  // null once it has been taken out
    std::vector<fe_symbol_record *> parameters;
    fe_node *body;
    int least = 0;      // arguments of a native function, as its owner has said
    int most = -1;      // -1: what it likes
    bool pure = false;  // as purity.h means it
    fe_membership membership = nullptr;
};

// The identity of a list, and its end. Lives as long as the list has members.
struct fe_list_state {
    fe_def *last;
    size_t members;
};

namespace fe {

enum definition_kind : unsigned int { k_kind_call = 0, k_kind_const, k_kind_variable };

// Flag of a node in the body of the very function that it calls: it does not keep the definition
// alive, which would otherwise keep itself alive forever.
constexpr unsigned char k_flag_own_body = 1;

constexpr size_t k_max_text = size_t{16} << 20;
constexpr size_t k_max_memory = size_t{256} << 20;
constexpr unsigned int k_max_evaluated_nodes = 10'000'000;
constexpr unsigned int k_max_nested_calls = 256;
constexpr unsigned int k_max_nesting = 200;

#ifdef __SANITIZE_ADDRESS__
constexpr bool k_recycle = false;  // so that the sanitizer sees every use after release
#else
constexpr bool k_recycle = true;
#endif

// --- memory -------------------------------------------------------------------------------------

// Counts bytes against k_max_memory; -1 and ENOMEM when there are none left.
int reserve_bytes(size_t bytes);
void release_bytes(size_t bytes);

// --- symbols ------------------------------------------------------------------------------------

using symbol_ptr = fe_symbol_record *;

symbol_ptr find_symbol(std::string_view name);
// With one more use, to be given back with release_symbol.
symbol_ptr acquire_symbol(std::string_view name);
// Those of one character, and those that are interned, are never released, so nobody counts them.
constexpr uint32_t k_permanent = 0x4000'0000;
inline bool is_permanent(const fe_symbol_record *symbol) {
    return symbol->uses >= k_permanent;
}
void add_use(symbol_ptr symbol);
void drop_use(symbol_ptr symbol);
inline void retain_symbol(symbol_ptr symbol) {
    if (!is_permanent(symbol)) add_use(symbol);
}
inline void release_symbol(symbol_ptr symbol) {
    if (!is_permanent(symbol)) drop_use(symbol);
}
inline symbol_ptr symbol_of_name(const char *name) {
    return reinterpret_cast<symbol_ptr>(const_cast<char *>(name) -
                                        offsetof(fe_symbol_record, name));
}

// Copies a text that is most often short, without a call then. Source and target may overlap.
inline void copy_text(char *to, std::string_view from) {
    auto copy_ends = [to, from]<class word>(word) {
        word head;
        word tail;
        memcpy(&head, from.data(), sizeof(word));
        memcpy(&tail, from.data() + from.size() - sizeof(word), sizeof(word));
        memcpy(to, &head, sizeof(word));
        memcpy(to + from.size() - sizeof(word), &tail, sizeof(word));
    };
    if (from.size() == 1) {
        to[0] = from[0];
    } else if (from.size() > 16) {
        memmove(to, from.data(), from.size());
    } else if (from.size() >= 8) {
        copy_ends(uint64_t{});
    } else if (from.size() >= 4) {
        copy_ends(uint32_t{});
    } else if (!from.empty()) {
        const char middle = from[from.size() / 2];
        const char last = from.back();
        to[0] = from[0];
        to[from.size() / 2] = middle;
        to[from.size() - 1] = last;
    }
}

// --- nodes --------------------------------------------------------------------------------------

// A node whose text of `length` bytes the caller fills in at node_text; only its NUL is written.
fe_node *allocate_node(fe_def *fed, size_t length);
inline char *node_text(fe_node *node) {
    return reinterpret_cast<char *>(node + 1);
}

fe_node *create_variable_node(std::string_view name);

inline std::string_view view_of(const fe_node *node) {
    return {node->text, node->private_length};
}

// The same for a constant, and a new constant of a text.
fe_node *allocate_const(size_t length);
fe_node *new_const(std::string_view text);

struct node_list_deleter {
    void operator()(fe_node *list) const { destroy_fe_node_list(list); }
};
using node_list = std::unique_ptr<fe_node, node_list_deleter>;

// A list that is built from its front to its end.
class result_list {
  public:
    // Takes over a chain of at least one node.
    void append(fe_node *chain) {
        if (last_ == nullptr) {
            head_.reset(chain);
        } else {
            last_->next = chain;
        }
        while (chain->next != nullptr)
            chain = chain->next;
        last_ = chain;
    }
    // Appends a new constant; false without memory.
    bool append_text(std::string_view text) {
        fe_node *node = new_const(text);
        if (node == nullptr) return false;
        append(node);
        return true;
    }
    bool empty() const { return last_ == nullptr; }
    fe_node *release() {
        last_ = nullptr;
        return head_.release();
    }
    // The list, or the one empty text that stands for no node at all.
    fe_node *release_result() { return empty() ? new_const({}) : release(); }

  private:
    node_list head_;
    fe_node *last_ = nullptr;
};

// --- definitions --------------------------------------------------------------------------------

extern fe_def g_def_const;
extern fe_def g_def_variable;

// Those of the language itself, such as that of constants, have no private data and live forever.
inline void retain_definition(fe_def *fed) {
    if (fed->private_data != nullptr) ++fed->private_uses;
}
void bury_definition(fe_def *fed);
inline void release_definition(fe_def *fed) {
    if (fed->private_data != nullptr && --fed->private_uses == 0) bury_definition(fed);
}
fe_def *find_definition(fe_def *list, std::string_view name);

// A function with parameters at the end of a list; the body comes later. Null without memory.
fe_def *append_user_function(fe_def *&list, std::string_view name,
                             const std::vector<std::string_view> &parameters);
void set_user_function_body(fe_def *fed, fe_node *body);
void take_out_of_list(fe_def *&list, fe_def *fed);

// --- contexts -----------------------------------------------------------------------------------

// What a context was made for: "set" reaches the method around the running function, "local" the
// function around the running loop.
enum class context_kind : unsigned char { method, function, loop };
fe_context *create_inner_context(fe_context *parent, context_kind kind);
fe_context *method_context(fe_context *ctx);
fe_context *function_context(fe_context *ctx);
int set_variable(fe_context *ctx, symbol_ptr name, std::string_view value);
// Its data is null when no context of the chain has it. The view ends in NUL.
std::string_view get_variable(const fe_context *ctx, const fe_symbol_record *name);
constexpr std::string_view k_empty_text{""};
// The same for a variable of an expression, which is the empty text when it is not set.
inline std::string_view variable_text(const fe_context *ctx, const fe_node *variable) {
    const std::string_view value = get_variable(ctx, symbol_of_name(variable->text));
    return value.data() != nullptr ? value : k_empty_text;
}

struct context_deleter {
    void operator()(fe_context *ctx) const { destroy_fe_context(ctx); }
};
using context_owner = std::unique_ptr<fe_context, context_deleter>;

// --- evaluation ---------------------------------------------------------------------------------

struct run_state {
    bool active;
    int stopped;  // 0, or the errno of its end
    unsigned int depth;
    unsigned int nodes_left;
};
extern run_state g_run;

// Reports once that the running evaluation is over, and makes whatever it still tries fail.
void stop_run(const char *reason, int error);

// The same for want of memory; errno is ENOMEM then. Without a running evaluation it sets errno
// only.
void stop_out_of_memory();

// False, and the run is over; what is worked on outside an evaluation costs nothing.
bool charge_too_many();

inline bool charge(size_t nodes) {
    if (nodes <= g_run.nodes_left) {
        g_run.nodes_left -= static_cast<unsigned int>(nodes);
        return true;
    }
    return charge_too_many();
}

// Long texts take long to work on, so they count as more than one node.
constexpr size_t k_text_of_a_node = 256;
inline bool charge_text(size_t length) {
    return length < k_text_of_a_node || charge(length / k_text_of_a_node);
}

extern unsigned long g_impure_count;

fe_node *evaluate(fe_context *ctx, const fe_node *node);
fe_node *evaluate_list(fe_context *ctx, const fe_node *first);
fe_node *call_user_function(fe_context *ctx, fe_node *call);

// The membership of a function with a body, and of one whose result holds what its arguments hold.
fe_node *ask_user_function(fe_context *ctx, fe_node *call, const char *text);
fe_node *ask_arguments(fe_context *ctx, fe_node *call, const char *text);
// "1" when one of the results of a chain holds the text, which is not empty, otherwise "0".
fe_node *ask_list(fe_context *ctx, const fe_node *first, std::string_view text);
fe_node *ask_one(fe_context *ctx, const fe_node *node, std::string_view text);
bool holds_text(const fe_node *results, std::string_view text);
inline fe_membership membership_of(const fe_node *node) {
    return node->fed->private_data != nullptr ? node->fed->private_data->membership : nullptr;
}

// errno and null in one.
fe_node *fail_with(int error);

// Whether the record of failure.h is about the evaluation that is on its way out.
enum class failure_state { none, failing, forgiven };
extern failure_state g_failure_state;

// A call gave null: completes the record, or makes one of errno, which is never 0 afterwards.
void note_failed_call(const fe_def *fed);
// A call gave a result, or its failure is an answer, too: what failed inside it is forgiven.
inline void forgive_failure() {
    if (g_failure_state == failure_state::failing) g_failure_state = failure_state::forgiven;
}

// How many arguments a call has whose second one is a regular expression; 0 for other functions.
size_t arguments_with_pattern(const fe_def *fed);

void report(std::string_view line);
void report_redefinition(std::string_view name);

// --- texts --------------------------------------------------------------------------------------

constexpr bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool is_word(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
// A name that can stand in front of "(" in an expression.
constexpr bool is_function_name(std::string_view name) {
    if (name.empty() || is_digit(name[0])) return false;
    for (char c : name) {
        if (!is_word(c)) return false;
    }
    return true;
}

}  // namespace fe

#endif
