// From tokens to calls, by recursive descent; binary operators climb a table of precedences. The
// grammar rule stands above each function. The first complaint ends the parse: from then on every
// rule gives null.
#include <array>
#include <cerrno>
#include <new>
#include <optional>

#include "fe/parse.h"
#include "internal.h"
#include "lexer.h"
#include "pattern.h"

namespace fe {

namespace {

struct binary_operator {
    std::string_view symbol;
    int precedence;  // the higher binds the tighter
    bool associates;
    const char *function;
};

constexpr int k_loosest = 1;
constexpr std::array k_binary_operators = {
    binary_operator{"*", 6, true, "mul"},
    binary_operator{"/", 6, false, "div"},
    binary_operator{"%", 6, false, "mod"},
    binary_operator{"+", 5, true, "add"},
    binary_operator{"-", 5, false, "sub"},
    binary_operator{"..", 5, true, "cat"},
    binary_operator{"<", 4, false, "lt"},
    binary_operator{"<=", 4, false, "le"},
    binary_operator{">", 4, false, "gt"},
    binary_operator{">=", 4, false, "ge"},
    binary_operator{"==", 4, false, "eq"},
    binary_operator{"!=", 4, false, "ne"},
    binary_operator{"=~", 4, false, "match"},
    binary_operator{"&&", 3, true, "and"},
    binary_operator{"||", k_loosest + 1, true, "or"},
};

const binary_operator *find_operator(const token &t) {
    for (const binary_operator &candidate : k_binary_operators) {
        if (t.is(candidate.symbol)) return &candidate;
    }
    return nullptr;
}

class parser {
  public:
    parser(std::string_view text, fe_def *list) : lexer_(text), list_(list) { advance(); }

    // text = conditional, end
    node_list parse() {
        node_list result = conditional();
        if (result != nullptr && token_.kind != token_kind::end) {
            return complain("an operator or the end");
        }
        return result;
    }

    const std::string &complaint() const { return complaint_; }
    int error() const { return error_; }

  private:
    // One level of brackets, signs or branches; the record of it ends with the scope.
    class level {
      public:
        explicit level(parser &p) : parser_(p) { ++parser_.nesting_; }
        level(const level &) = delete;
        level &operator=(const level &) = delete;
        ~level() { --parser_.nesting_; }
        bool too_deep() const { return parser_.nesting_ > k_max_nesting; }

      private:
        parser &parser_;
    };

    void advance() { token_ = lexer_.next(); }

    std::nullptr_t complain_at(size_t offset, std::string_view expected) {
        if (complaint_.empty()) complaint_ = lexer_.complaint(offset, expected);
        return nullptr;
    }

    std::nullptr_t complain(std::string_view expected) {
        bool wrong = token_.kind == token_kind::error;
        return complain_at(token_.offset, wrong ? token_.value : expected);
    }

    std::nullptr_t complain_of_depth(size_t offset) {
        return complain_at(offset, "at most 200 nested levels");
    }

    bool expect_closing(size_t opened) {
        if (token_.is(")")) {
            advance();
            return true;
        }
        complain("\")\" to close the \"(\" of column " + std::to_string(lexer_.column(opened)));
        return false;
    }

    // A pattern that stands in the text is looked at now, not when a request comes by. `offset` is
    // where it stands.
    bool second_is_good(const fe_def *fed, const fe_node *arguments, size_t offset) {
        const size_t count = arguments_with_pattern(fed);
        const fe_node *second = count != 0 && arguments != nullptr ? arguments->next : nullptr;
        if (second == nullptr || second->fed != g_fed_const ||
            static_cast<size_t>(fe_argc(arguments)) != count) {
            return true;
        }
        const std::string wrong = check_pattern(view_of(second));
        if (wrong.empty()) return true;
        complain_at(offset, std::string("a pattern for \"") + fed->name + "\" (" + wrong + ")");
        error_ = EBADMSG;
        return false;
    }

    // Puts a call around a chain of arguments, the second of which stands at `second`.
    node_list make_call(const char *function, size_t offset, node_list arguments,
                        size_t second = 0) {
        fe_def *fed = find_definition(list_, function);
        if (fed == nullptr) {
            return complain_at(offset, std::string("an operator whose function \"") + function +
                                           "\" is registered");
        }
        return make_call(fed, offset, std::move(arguments), second);
    }

    node_list make_call(fe_def *fed, size_t offset, node_list arguments, size_t second) {
        if (!second_is_good(fed, arguments.get(), second)) return nullptr;
        node_list call(create_fe_node(fed, nullptr));
        if (call == nullptr) throw std::bad_alloc();
        for (const fe_node *child = arguments.get(); child != nullptr; child = child->next) {
            if (child->private_depth >= call->private_depth) {
                call->private_depth = static_cast<unsigned short>(child->private_depth + 1);
            }
        }
        call->first_child = arguments.release();
        if (call->private_depth > k_max_nesting + 1) return complain_of_depth(offset);
        return call;
    }

    // conditional = operation(loosest) [ "?" conditional ":" conditional ]
    node_list conditional() {
        node_list condition = binary(k_loosest);
        if (condition == nullptr || !token_.is("?")) return condition;
        const size_t offset = token_.offset;
        level deeper(*this);
        if (deeper.too_deep()) return complain_of_depth(offset);
        advance();
        result_list arguments;
        arguments.append(condition.release());
        node_list branch = conditional();
        if (branch == nullptr) return nullptr;
        arguments.append(branch.release());
        if (!token_.is(":")) {
            return complain("\":\" for the \"?\" of column " +
                            std::to_string(lexer_.column(offset)));
        }
        advance();
        branch = conditional();
        if (branch == nullptr) return nullptr;
        arguments.append(branch.release());
        return make_call("if", offset, node_list(arguments.release()));
    }

    // binary(p) = unary { operator of at least p, binary(one more than the operator) }
    // A chain of one operator that associates is one call.
    node_list binary(int precedence) {
        node_list left = unary();
        while (left != nullptr) {
            const binary_operator *op = find_operator(token_);
            if (op == nullptr || op->precedence < precedence) break;
            const size_t offset = token_.offset;
            size_t right_offset = 0;
            result_list operands;
            operands.append(left.release());
            do {
                advance();
                right_offset = token_.offset;
                node_list right = binary(op->precedence + 1);
                if (right == nullptr) return nullptr;
                operands.append(right.release());
            } while (op->associates && token_.is(op->symbol));
            left = make_call(op->function, offset, node_list(operands.release()), right_offset);
        }
        return left;
    }

    // unary = "!" unary | "-" unary | primary
    node_list unary() {
        const bool negates = token_.is("!");
        if (!negates && !token_.is("-")) return primary();
        const size_t offset = token_.offset;
        level deeper(*this);
        if (deeper.too_deep()) return complain_of_depth(offset);
        advance();
        node_list operand = unary();
        if (operand == nullptr) return nullptr;
        if (negates) return make_call("not", offset, std::move(operand));
        node_list arguments = constant("0");
        arguments->next = operand.release();
        return make_call("sub", offset, std::move(arguments));
    }

    // primary = constant | variable | name "(" [ arguments ] ")" | "(" conditional ")"
    node_list primary() {
        const token start = token_;
        node_list result;
        switch (start.kind) {
            case token_kind::constant:
                result = constant(start.value);
                break;
            case token_kind::variable:
                result.reset(create_variable_node(start.value));
                if (result == nullptr) throw std::bad_alloc();
                break;
            case token_kind::name:
                advance();
                return call(start);
            default:
                if (start.is("(")) return group();
                return complain("an expression");
        }
        advance();
        return result;
    }

    node_list group() {
        const size_t opened = token_.offset;
        level deeper(*this);
        if (deeper.too_deep()) return complain_of_depth(opened);
        advance();
        node_list result = conditional();
        if (result == nullptr || !expect_closing(opened)) return nullptr;
        return result;
    }

    // arguments = conditional { "," conditional }
    node_list call(const token &name) {
        if (!token_.is("(")) return complain("\"(\" behind the name \"" + name.value + "\"");
        fe_def *fed = find_definition(list_, name.value);
        if (fed == nullptr) return complain_at(name.offset, "the name of a function");
        const size_t opened = token_.offset;
        level deeper(*this);
        if (deeper.too_deep()) return complain_of_depth(opened);
        advance();
        result_list arguments;
        size_t second = 0;
        while (!arguments.empty() || !token_.is(")")) {
            if (!arguments.empty() && second == 0) second = token_.offset;
            node_list argument = conditional();
            if (argument == nullptr) return nullptr;
            arguments.append(argument.release());
            if (!token_.is(",")) break;
            advance();
        }
        if (!expect_closing(opened)) return nullptr;
        return make_call(fed, name.offset, node_list(arguments.release()), second);
    }

    static node_list constant(std::string_view text) {
        node_list result(new_const(text));
        if (result == nullptr) throw std::bad_alloc();
        return result;
    }

    lexer lexer_;
    fe_def *list_;
    token token_;
    unsigned int nesting_ = 0;
    std::string complaint_;
    int error_ = EINVAL;
};

std::string g_error_text;
fe_parse_observer g_observer = nullptr;

}  // namespace

}  // namespace fe

extern "C" {

using namespace fe;

fe_node *parse_fe_expression(const char *text, fe_def *list) {
    try {
        parser p(text == nullptr ? "" : text, list);
        node_list result = p.parse();
        if (result != nullptr) {
            if (g_observer != nullptr) g_observer(result.get());
            return result.release();
        }
        g_error_text = p.complaint();
        return fail_with(p.error());
    } catch (const std::bad_alloc &) {
        g_error_text = "out of memory";
        return fail_with(ENOMEM);
    }
}

void fe_set_parse_observer(fe_parse_observer observer) {
    g_observer = observer;
}

const char *fe_error_text(void) {
    return g_error_text.c_str();
}
}
