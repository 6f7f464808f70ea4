#pragma once

#include <array>
#include <cstddef>
#include <string_view>

/* Characters that end or separate something, known while compiling. Looking one up is a look into a
 * table, where find_first_of and its kin call memchr for each character of the text. */
class char_set {
  public:
    constexpr explicit char_set(std::string_view members) {
        for (char c : members)
            has_[static_cast<unsigned char>(c)] = true;
    }

    constexpr char_set with(std::string_view more) const {
        char_set both{more};
        for (std::size_t i = 0; i < has_.size(); i++)
            both.has_[i] |= has_[i];
        return both;
    }

    constexpr bool has(char c) const { return has_[static_cast<unsigned char>(c)]; }

    /* Where the first member stands from pos on; the length of the text when there is none. */
    constexpr std::size_t find(std::string_view text, std::size_t pos = 0) const {
        while (pos < text.size() && !has(text[pos]))
            pos++;
        return pos < text.size() ? pos : text.size();
    }

    /* And where the first other character stands. */
    constexpr std::size_t skip(std::string_view text, std::size_t pos = 0) const {
        while (pos < text.size() && has(text[pos]))
            pos++;
        return pos < text.size() ? pos : text.size();
    }

    constexpr bool holds_all(std::string_view text) const { return skip(text) == text.size(); }

  private:
    std::array<bool, 256> has_{};
};

inline constexpr char_set k_blank_set{" \t"};
