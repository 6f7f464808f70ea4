#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "backend/ll_trns.h"
#include "backend/registry.h"
#include "daemon/dirs.h"
#include "daemon/startup.h"
#include "daemon_fixture.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "session/limits.h"
#include "tree/ccdtree.h"
#include "tree/param_error.h"
#include "tree/trns.h"
#include "tree/types.h"
#include "ucfgd/owners.h"

/* The documents and the sample appliance, held against the program: what they show is run. */

namespace {

std::string read(const std::string &name) {
    std::ostringstream text;
    text << std::ifstream{name}.rdbuf();
    return text.str();
}

std::string document(const std::string &name) {
    return read(std::string{SOURCE_DIR} + "/docs/" + name);
}

/* One row of a table of functions; the cells' texts without their backquotes. */
struct function_row {
    std::string name;
    std::string example;
    std::string result;
};

std::string cell_text(std::string cell) {
    cell.erase(0, cell.find_first_not_of(' '));
    cell.erase(cell.find_last_not_of(' ') + 1);
    if (cell == "``") return "";
    if (cell.size() > 1 && cell.front() == '`' && cell.back() == '`')
        cell = cell.substr(1, cell.size() - 2);
    return cell;
}

/* The cells of a row; "\|" stands for "|" in one. */
std::vector<std::string> cells_of(const std::string &line) {
    std::vector<std::string> cells{""};
    for (size_t i = 1; i < line.size(); i++) {
        if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|')
            cells.back() += line[++i];
        else if (line[i] == '|')
            cells.emplace_back();
        else
            cells.back() += line[i];
    }
    cells.pop_back();
    std::transform(cells.begin(), cells.end(), cells.begin(), cell_text);
    return cells;
}

std::vector<function_row> function_rows() {
    std::vector<function_row> rows;
    std::istringstream lines{document("expressions.md")};
    bool in_table = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("| Function |", 0) == 0) in_table = true;
        if (line.empty()) in_table = false;
        if (!in_table || line.rfind("| `", 0) != 0) continue;
        std::vector<std::string> cells = cells_of(line);
        if (cells.size() != 4) {
            ADD_FAILURE() << "not a row of four cells: " << line;
            continue;
        }
        rows.push_back({cells[0].substr(0, cells[0].find('(')), cells[2], cells[3]});
    }
    return rows;
}

/* A size as the documents write it. */
std::string amount_text(long value) {
    for (const auto &[unit, letter] : {std::pair{1L << 20, "M"}, {1L << 10, "K"}})
        if (value > 0 && value % unit == 0) return std::to_string(value / unit) + letter;
    return std::to_string(value);
}

/* The blocks of a document that are marked with that word. */
std::vector<std::string> blocks(const std::string &name, const std::string &mark) {
    std::vector<std::string> found;
    std::istringstream lines{document(name)};
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("```", 0) == 0) {
            inside = !inside && line == "```" + mark;
            if (inside) found.emplace_back();
        } else if (inside) {
            found.back() += line + "\n";
        }
    }
    EXPECT_FALSE(found.empty()) << name << ": " << mark;
    return found;
}

/* A scratch copy of the sample appliance, loaded into this process as start-up does it. */
class Documents : public daemon_test {
  protected:
    static void SetUpTestSuite() {
        /* What is logged counts as a failure of the document, so it is kept and looked at. */
        daemon_log_use = DAEMON_LOG_STDERR;
        setenv("TZ", "UTC", 1);
        register_all();
        g_fel_base = init_felib();
    }

    void prepare() override {
        use_appliance();
        prefix_ = path("");
        ucfgd_conffilesprefix = g_filesprefix = prefix_.data();
    }

    void TearDown() override {
        trns_destroy_ctx(g_trns_ctx);
        g_trns_ctx = nullptr;
        ucfgd_conffilesprefix = g_filesprefix = nullptr;
        daemon_test::TearDown();
    }

    void load() {
        ccdtree_readconf_functions("/etc/ucfgd/functions.conf", g_fel_base->fed_list);
        if (g_trns_iface_list == nullptr) ll_register_tctx_interface();
        g_trns_ctx = trns_create_ctx();
        register_llconf_all((prefix_ + "/etc/ucfgd/modules.conf").c_str(), g_fel_base->fed_list);
        g_types = types_readconf("/etc/ucfgd/types.conf", g_fel_base->fed_list);
        g_ccdtree = create_ccdtree();
        ccdtree_readconf(g_ccdtree, "/etc/ucfgd/param.conf", g_fel_base->fed_list);
        g_mgmttree = create_ccdtree();
        ccdtree_readconf(g_mgmttree, "/etc/ucfgd/management.conf", g_fel_base->fed_list);
    }

    void unload() {
        destroy_ccdtree(g_ccdtree);
        destroy_ccdtree(g_mgmttree);
        destroy_ccd_type_list(g_types);
        g_ccdtree = g_mgmttree = nullptr;
        g_types = nullptr;
        ccd_clear_error();
    }

    /* The texts of an expression's result in a transaction of its own, joined by ", ". */
    static std::string eval(const std::string &text) {
        owned<fe_node, destroy_fe_node_tree> expression{
            parse_fe_expression(text.c_str(), g_fel_base->fed_list)};
        if (!expression) return std::string{"does not parse: "} + fe_error_text();
        owned<trns_ctx, trns_destroy_ctx> transaction{trns_copy_ctx(g_trns_ctx)};
        owned<fe_context, destroy_fe_context> ctx{create_fe_context(nullptr, transaction.get())};
        owned<fe_node, destroy_fe_node_list> result{
            eval_fe_expression(ctx.get(), expression.get())};
        if (!result) return "(failed)";
        std::string joined;
        for (const fe_node *node = result.get(); node != nullptr; node = node->next)
            joined.append(node == result.get() ? "" : ", ").append(node->text);
        return joined;
    }

    std::string prefix_;
};

TEST_F(Documents, NameEveryRegisteredFunctionAndNoOther) {
    std::set<std::string> documented;
    for (const function_row &row : function_rows())
        documented.insert(row.name);
    std::set<std::string> registered;
    owned<felib_base, destroy_felib_base> base{init_felib()};
    for (const fe_def *def = base->fed_list; def != nullptr; def = def->next)
        registered.insert(def->name);
    EXPECT_EQ(registered, documented);
}

TEST_F(Documents, TellEveryLimitWithItsDefaultAndRange) {
    EXPECT_NE(document("man/ucfgd.conf.5.in").find("@section security.md Limits"),
              std::string::npos);
    const std::string text = document("security.md");
    for (int i = 0; i < k_limit_count; i++) {
        const auto id = static_cast<limit_id>(i);
        EXPECT_NE(text.find("| `" + std::string{limit_key(id)} + "` | " +
                            amount_text(limit_value(id)) + " | " + amount_text(limit_minimum(id)) +
                            " to " + amount_text(limit_maximum(id)) + " | "),
                  std::string::npos)
            << limit_key(id);
    }
}

TEST_F(Documents, TellEveryFieldOfAModuleAndNoOther) {
    std::set<std::string> fields;
    for (size_t i = 0; const char *field = llconf_module_field(i); i++)
        fields.insert(field);
    const std::string text = document("tree-files.md");
    const size_t begin = text.find("| Field |");
    std::set<std::string> documented;
    std::istringstream lines{text.substr(begin, text.find("\n\n", begin) - begin)};
    for (std::string line; std::getline(lines, line);)
        for (size_t at = 2; line.compare(at, 1, "`") == 0; at = line.find_first_of("`|", at + 1)) {
            const size_t end = line.find('`', at + 1);
            documented.insert(line.substr(at + 1, end - at - 1));
            at = end;
        }
    EXPECT_EQ(documented, fields);
}

TEST_F(Documents, ShowExamplesOfFunctionsWithTheirResults) {
    load();
    for (const function_row &row : function_rows())
        EXPECT_EQ(row.result, eval(row.example)) << row.example;
    unload();
}

TEST_F(Documents, ShowDefinitionFilesThatTheReadersTake) {
    g_trns_ctx = trns_create_ctx();
    testing::internal::CaptureStderr();
    for (const char *mark : {"conf", "modules", "types", "tree"}) {
        for (const std::string &block : blocks("tree-files.md", mark)) {
            put("/etc/block.conf", block);
            const cnfmodule *tavconf = find_cnfmodule("tavconf");
            owned<cnfnode, destroy_cnftree> tree{
                cnfmodule_parse_file(tavconf, path("/etc/block.conf").c_str())};
            EXPECT_NE(nullptr, tree) << cnf_error_text();
        }
    }
    put("/etc/types.conf", blocks("tree-files.md", "types").front());
    owned<ccd_type, destroy_ccd_type_list> types{
        types_readconf("/etc/types.conf", g_fel_base->fed_list)};
    EXPECT_EQ(1, is_type(nullptr, find_ccd_type(types.get(), "web-port"), "8080"));
    EXPECT_EQ(0, is_type(nullptr, find_ccd_type(types.get(), "web-port"), "80800"));
    put("/etc/tree.conf", blocks("tree-files.md", "tree").front());
    owned<ccdtree_node, destroy_ccdtree> tree{create_ccdtree()};
    ccdtree_readconf(tree.get(), "/etc/tree.conf", g_fel_base->fed_list);
    ccdtree_postprocess(tree.get(), 0, 0);
    EXPECT_STREQ("first", tree->first_child->next->next->name);
    EXPECT_EQ(nullptr, tree->first_child->next->next->next) << "~second removes it";
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(daemon_test, TheSampleApplianceLoadsWithoutAWordAndAnswersAtLeastFortyParameters) {
    use_appliance();
    start({"-d", "1"});
    client c = logged_in();
    std::istringstream lines{c.ask("l LISTR")};
    int answered = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("l.1 ", 0) != 0) continue;
        std::string reply = c.ask("g GET " + line.substr(4));
        if (reply.find("g OK\n") != std::string::npos) answered++;
    }
    EXPECT_GE(answered, 40);
    EXPECT_FALSE(logged("Error:")) << log();
    EXPECT_FALSE(logged("Warning:")) << log();
    EXPECT_FALSE(logged("Unable")) << log();
}

}  // namespace
