// From characters to tokens.
#ifndef FE_LEXER_H
#define FE_LEXER_H

#include <cstddef>
#include <string>
#include <string_view>

namespace fe {

enum class token_kind {
    end,
    constant,     // value: the text
    variable,     // value: the name
    name,         // value: the name
    punctuation,  // source: which one
    error,        // value: what was expected there
};

struct token {
    token_kind kind = token_kind::end;
    size_t offset = 0;        // of its first byte; of the wrong one for an error
    std::string_view source;  // as it was written
    std::string value;

    bool is(std::string_view punctuation) const {
        return kind == token_kind::punctuation && source == punctuation;
    }
};

class lexer {
  public:
    explicit lexer(std::string_view text) : text_(text) {}

    token next();

    // "column N: expected WHAT, found ..."; what was found is read at that place of the text.
    std::string complaint(size_t offset, std::string_view expected) const;
    size_t column(size_t offset) const;

  private:
    token quoted(size_t start);
    token variable(size_t start);
    bool escape(std::string &value);
    std::string found_at(size_t offset) const;
    size_t word_end(size_t start) const;

    std::string_view text_;
    size_t at_ = 0;
};

}  // namespace fe

#endif
