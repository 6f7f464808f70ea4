/* Every parser against the cases of its data file; format_case.h tells how these are written. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>

#include "format_case.h"
#include "format_support.h"

namespace formats {
namespace {

std::string data_directory() {
    return std::string(SOURCE_DIR) + "/tests/formats/data";
}

/* A title as one CamelCase word. */
std::string test_name(const std::string &title) {
    std::string name;
    bool upper = true;
    for (char c : title) {
        bool letter = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (letter) name += upper ? static_cast<char>(std::toupper(c)) : c;
        upper = !letter;
    }
    return name;
}

/* What a tree says: without layout, in any order, no value being as good as an empty one. */
std::vector<std::string> contents(const cnfnode *root) {
    std::vector<std::string> lines = describe(root);
    std::erase_if(lines, [](const std::string &line) {
        std::size_t start = line.find_first_not_of(' ');
        return start != std::string::npos &&
               (line.compare(start, 6, ".empty") == 0 || line.compare(start, 8, ".comment") == 0 ||
                line.compare(start, 9, ".unparsed") == 0);
    });
    for (std::string &line : lines) {
        if (line.ends_with(" = \"\"")) line.resize(line.size() - 5);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

class format_test : public testing::Test {
  public:
    explicit format_test(format_case c) : case_(std::move(c)) {}

    void TestBody() override {
        SCOPED_TRACE(case_.source);
        module_ = open_module(case_.parser, case_.options);
        ASSERT_NE(module_, nullptr) << "parser " << case_.parser << ", options " << case_.options;
        tree_ptr tree = parse(module_.get(), case_.text);
        if (!case_.error.empty()) {
            EXPECT_EQ(tree, nullptr);
            EXPECT_EQ(errno, EINVAL);
            EXPECT_EQ(cnf_error_text(), case_.error);
            return;
        }
        ASSERT_NE(tree, nullptr) << cnf_error_text();
        EXPECT_EQ(write(module_.get(), tree.get()), case_.text);
        if (!case_.tree.empty()) {
            EXPECT_EQ(describe(tree.get()), case_.tree);
        }
        for (const edit &e : case_.edits)
            run(e);
    }

  private:
    void run(const edit &e) {
        SCOPED_TRACE("line " + std::to_string(e.line));
        tree_ptr tree = parse(module_.get(), case_.text);
        bool accepted = true;
        for (const words &operation : e.operations) {
            ASSERT_TRUE(apply(module_.get(), tree.get(), operation, &accepted))
                << "nothing to edit there: " << operation.at(1);
        }
        errno = 0;
        std::optional<std::string> written = write(module_.get(), tree.get());
        if (e.expected == verdict::written) {
            EXPECT_TRUE(accepted);
            ASSERT_TRUE(written) << cnf_error_text();
            check_written(e, tree.get(), *written);
            return;
        }
        int error = errno;
        EXPECT_EQ(accepted, e.expected == verdict::unwritable);
        EXPECT_FALSE(written) << *written;
        EXPECT_EQ(error, EINVAL);
    }

    void check_written(const edit &e, const cnfnode *tree, const std::string &written) {
        EXPECT_EQ(difference(case_.text, written), e.diff);
        tree_ptr again = parse(module_.get(), written);
        ASSERT_NE(again, nullptr) << cnf_error_text();
        /* A lens counts its entries anew. */
        if (case_.parser != "augeas") {
            EXPECT_EQ(contents(again.get()), contents(tree));
        }
        if (!case_.crlf) return;
        auto line_feeds = std::count(written.begin(), written.end(), '\n');
        EXPECT_EQ(std::count(written.begin(), written.end(), '\r'), line_feeds);
    }

    format_case case_;
    module_ptr module_;
};

void register_cases() {
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(data_directory())) {
        if (entry.path().extension() == ".cases") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path &file : files) {
        for (const format_case &c : read_cases(file.string())) {
            if (c.parser == "augeas" && !plugin_built()) continue;
            testing::RegisterTest(("Format_" + file.stem().string()).c_str(),
                                  test_name(c.title).c_str(), nullptr, nullptr, __FILE__, __LINE__,
                                  [c]() -> testing::Test * { return new format_test(c); });
        }
    }
}

}  // namespace
}  // namespace formats

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    formats::register_cases();
    return RUN_ALL_TESTS();
}
