#ifndef LLCONF_PATH_TEXT_H
#define LLCONF_PATH_TEXT_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/* Paths as text: cut into components, matched against names, escaped. */

enum class selector { none, index, key };

struct path_component {
    std::string_view name;
    selector select;
    bool wildcard; /* match name with matches_pattern: it holds a "*" or "?" and, escaped,
                      whatever the path had escaped */
    size_t index;
    std::string_view key;
    std::string_view text;
};

/* Cuts a path into components, one at a time: a path of any length costs only what is asked for.
 * The components live as long as the reader and the path. */
class path_reader {
  public:
    path_reader(const char *path, bool wildcards) : rest_(path), wildcards_(wildcards) {}

    /* False for what is no path. Looks through the whole text, once. */
    static bool is_path(std::string_view path);
    /* The empty path and ".". */
    static bool is_self(std::string_view path) { return path.empty() || path == "."; }

    bool at_end() const { return rest_.empty(); }
    /* Of a path that is one, and not at its end. */
    path_component next();

  private:
    std::string_view plain(std::string_view escaped);

    std::string_view rest_;
    bool wildcards_;
    std::vector<std::unique_ptr<std::string>> unescaped_;
};

/* "*" stands for any text, "?" for one character, a backslash for the character behind it. */
bool matches_pattern(std::string_view pattern, std::string_view name);

/* Appends a name as a component. "." gets a backslash, too: alone it would be no name. */
void append_escaped(std::string &path, std::string_view name);

#endif
