#include "backend_fixture.h"

namespace {

class registry : public backend_test {};

TEST_F(registry, OnlyTheFirstWordOfFlagsCounts) {
    put("f", "a\n");
    const std::pair<std::string, unsigned int> rows[] = {
        {"create readonly", LLI_FLAG_CREATE},
        {",read only", LLI_FLAG_READONLY},
        {"nonsenses create", 0},
        {"always-revert create", LLI_FLAG_ALWAYS_REVERT},
        {"create\n flags: always-revert", LLI_FLAG_CREATE | LLI_FLAG_ALWAYS_REVERT},
        {"create\n flags: readonly", LLI_FLAG_READONLY}};
    for (const auto &[value, flags] : rows) {
        std::string name = "m" + std::to_string(value.size());
        modules(name + " {\n module: lines\n file: f\n flags: " + value + "\n}\n");
        EXPECT_EQ(item(name.c_str())->flags, flags) << value;
    }
    modules(
        "m {\n module: lines\n file: f\n flags: create and so much more that nothing fits\n}\n");
    EXPECT_EQ(item("m")->flags, unsigned{LLI_FLAG_CREATE});
    EXPECT_EQ(unlogged({"m: flags are too long: create and"}), "");
}

TEST_F(registry, WhatIsWrongIsLoggedAndTheOthersStillCount) {
    put("f", "a\n");
    EXPECT_EQ(
        modules("a {\n module: nosuch\n file: f\n}\n"
                "b {\n module: lines\n pipe-in: true\n}\n"
                "c {\n module: keyvalue\n file: f\n options: a=\"\n}\n"
                "d {\n module: lines\n file: f\n colour: red\n mode: rw\n uid: nosuchuser\n"
                " gid: nosuchgroup\n .hidden: x\n post-read: nosuch()\n}\n"
                "e {\n module: lines\n file: missing\n}\n"
                "lines {\n file: f\n pipe-in: x\n pipe-out: x\n mode: 0x1a4\n uid: root\n}\n"),
        0);
    EXPECT_EQ(
        unlogged({"module 'a': no parser 'nosuch' found.",
                  "module 'c': parsing options 'a=\"' failed.",
                  "module 'b': need either pipe-in and pipe-out or file.",
                  "Unable to register module 'b' specified in file '",
                  "Unable to register module 'e' specified in file '", "d: unknown field colour:\n",
                  "d: invalid mode rw", "getpwnam('nosuchuser') failed: Success\n",
                  "getgrnam('nosuchgroup') failed: Success\n"}),
        "");
    EXPECT_EQ(item("d")->func_post_read, nullptr);
    EXPECT_EQ(item("lines")->file->mode, 0644);
    EXPECT_EQ(item("lines")->file->uid + item("d")->file->mode + item("d")->file->uid, -2);
    llconf_write_all_cnftrees(lli_list_from_trns_ctx(g_trns_ctx));
    EXPECT_TRUE(std::filesystem::exists(path("missing")));
    EXPECT_EQ(modules("a {\n"), -1);
}

TEST_F(registry, HooksOfFeatureModulesGoBeforeAndBehindThoseOfTheInstance) {
    put("f", "a\n");
    modules(
        "f {\n module: lines\n file: f\n flags: always-revert\n"
        " post-read: llset('log', 'line', llget('log', 'line') .. 'b')\n}\n"
        "log {\n module: lines\n file: f\n}\n");
    owned<cnfnode, destroy_cnftree> hooks{create_cnfnode("(root)")};
    for (std::string field : {"post-read-prepend:", "post-read-append:", "post-read-else:"}) {
        std::string body = "llset('log', 'line', llget('log', 'line') .. '" + field.substr(10, 1);
        cnfnode_setval(cnf_add_branch(hooks.get(), ("f/" + field).c_str()), (body + "')").c_str());
    }
    cnf_add_branch(hooks.get(), "nosuch/post-read-append:");
    EXPECT_EQ(register_llconf_hooks_cn(functions, hooks.get()), 0);
    llconf_revert_cnftree(item("f"));
    EXPECT_EQ(eval("llget('log', 'line')"), "apba");
    owned_ctx none{std::exchange(g_trns_ctx, nullptr)};
    EXPECT_EQ(register_llconf_hooks_cn(functions, hooks.get()), -1);
    g_trns_ctx = none.release();
}

}  // namespace
