/* Rows of columns, shared by the table and the mgetty parser.
 *
 *  1. One column names the node, the others are its children, in the order of the columns; columns
 *     missing at the end of a row are missing children.
 *  2. The last column takes what is left of the line, separators included.
 *  3. Functions that may run out of memory throw std::bad_alloc; the parsers' functions catch it.
 */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "llconf/nodes.h"
#include "llconf/parser.h"

namespace llconf {

struct row_syntax {
    std::vector<const char *> columns;  // interned names
    std::size_t key = 0;                // index of the column that names the node
    std::size_t required = 1;           // columns that a row must have
    std::string separator = ":";        // the empty text: runs of blanks
    std::string comment = "#";          // each of these characters begins a comment
    std::string_view word_behind;       // a word that belongs to the next to last column
};

/* One for the `read` of a parser. */
int row_read(const row_syntax &syntax, cnf_reader *reader, std::string_view text);

/* One for its `format`. Keeps the gaps and the comment of the old row. */
int row_format(const row_syntax &syntax, const cnf_format &request);

/* One for its `accepts`. */
bool row_accepts(const row_syntax &syntax, int level, const cnfnode *parent, std::string_view name,
                 const char *value);

}  // namespace llconf
