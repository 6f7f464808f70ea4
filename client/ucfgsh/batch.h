/* Several changes at once, one a line: read, applied all or none, and told. */
#ifndef UCFGSH_BATCH_H
#define UCFGSH_BATCH_H

#include <optional>
#include <string>
#include <vector>

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* One item, how it was typed, and the line of its file; 0 when it has none. */
struct batch_item {
    order what;
    std::string typed;
    unsigned long line = 0;
};

/* Of a line; nothing, with the reason, when it is none. An empty line and a comment are for
 * read_items(). */
std::optional<batch_item> read_item(const shell &sh, const std::string &line, std::string &reason);

/* Of a whole text. Nothing when a line makes no sense: `bad` is that line, and `reason` why. */
struct bad_line {
    unsigned long line = 0;
    std::string reason;
};
std::optional<std::vector<batch_item>> read_items(const shell &sh, const std::string &text,
                                                  bad_line &bad);

/* What became of a batch: of each item as in ucfg_batch, which is null when there was no answer. */
struct batch_outcome {
    int code = 0;
    std::vector<batch_item> items;
    owned_batch answer;
    std::string text;               /* what was said of the batch as a whole */
    std::vector<std::string> hints; /* what to do about each item; empty when all went well */
    bool applied() const { return code == k_ucfg_ok; }
};

/* Applies the items, all or none. Without items there is nothing to ask. */
batch_outcome apply_items(shell &sh, std::vector<batch_item> items);

/* Those of the items that would change something now: values that differ, entries that are not
 * there or that are to go, and every move. */
std::vector<batch_item> not_yet_so(shell &sh, const std::vector<batch_item> &items);

/* Why that item was refused: the text, the error record in brackets, and what to do next. */
std::string item_reason(const batch_outcome &outcome, size_t number);

/* The items and errors in JSON; `file` is where the items' lines stand. */
void tell_batch_json(shell &sh, const batch_outcome &outcome, const std::string &file);

/* "1 change", "2 changes". */
std::string count_changes(size_t count);

}  // namespace ucfgsh

#endif
