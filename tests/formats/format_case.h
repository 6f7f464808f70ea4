/* Cases of the format tests, read from data files.
 *
 * A data file is a list of cases; what a line means is told by how it begins:
 *
 *   ##                   a remark
 *   = title              a case begins; its title is a sentence about behaviour
 *   parser NAME OPTIONS  the module that reads the file
 *   lines crlf           the file's lines end in CRLF;  lines unended: its last line has no end
 *   |text                a line of the file
 *   >text                a line of the tree that is read: two blanks a level, name, = "value"
 *   edit OPERATION       the file is read, the tree edited and written back
 *   then OPERATION       a further operation of the same edit
 *   -text  +text         the lines that this edit takes away and adds, in order, and no others
 *   refuse OPERATION     the module says beforehand that the file cannot hold it, and the edited
 *                        tree is not written
 *   unwritable OPERATION the edited tree is not written
 *   error text           the file is refused; "FILE" in the text stands for its name
 *
 * Operations, where PATH is a path in the tree and a word with blanks stands in double quotes, with
 * \" \\ \n \r \t inside:
 *
 *   set PATH VALUE     clear PATH           del PATH            rename PATH NAME
 *   add PATH NAME [VALUE]  (as last child)  before PATH NAME [VALUE]
 *   move PATH PATH2  (before that sibling)  last PATH  (behind its siblings)
 */
#pragma once

#include <string>
#include <vector>

struct cnfnode;
struct cnfmodule;

namespace formats {

using words = std::vector<std::string>;

enum class verdict { written, refused, unwritable };

struct edit {
    verdict expected = verdict::written;
    std::vector<words> operations;
    std::vector<std::string> diff;  // lines with "-" or "+" in front
    int line = 0;                   // of the data file
};

struct format_case {
    std::string title;
    std::string parser;
    std::string options;
    std::string text;  // of the file
    bool crlf = false;
    bool unended = false;
    std::vector<std::string> tree;
    std::vector<edit> edits;
    std::string error;
    std::string source;  // data file and line
};

/* Every case of a data file; a line that means nothing becomes a case that fails. */
std::vector<format_case> read_cases(const std::string &path);

words split_words(const std::string &text);

/* Carries an operation out. False: it names no node. *accepted: what the module said before. */
bool apply(const cnfmodule *module, cnfnode *root, const words &operation, bool *accepted);

/* The tree as its lines stand in a data file. */
std::vector<std::string> describe(const cnfnode *root);

std::vector<std::string> split_lines(const std::string &text);

/* The lines that lead from one text to the other, "-" or "+" in front. */
std::vector<std::string> difference(const std::string &from, const std::string &to);

}  // namespace formats
