#include "tree/features.h"

#include "tree_fixture.h"

class FeatureModule : public tree_test {
  protected:
    void install(const std::string &name, mode_t mode) const {
        std::filesystem::copy_file(FEATURE_LIBRARY, dir + name);
        chmod((dir + name).c_str(), mode);
    }
};

TEST_F(FeatureModule, ALibraryAddsItsFunctions) {
    file("/f/a.conf", "felib {\n name: sample\n library: /sample.so\n}\n");
    file("/f/b.conf", "param {\n file: /x\n}\n");
    file("/f/c.txt", "not read\n");
    install("/sample.so", 0755);
    EXPECT_EQ(config_feature_modules_lib(base, "/f"), 1);
    EXPECT_EQ(config_feature_module_lib(base, "/f/a.conf"), 7);
    EXPECT_EQ(evaluate("sample_answer()"), "from the library");
    EXPECT_EQ(config_feature_modules_lib(base, "/empty"), 0);
}

TEST_F(FeatureModule, ALibraryIsRefusedWhenItIsMissingForeignOrWithoutItsEntry) {
    install("/open.so", 0777);
    install("/sample.so", 0755);
    file("/open.conf", "felib {\n name: sample\n library: /open.so\n}\n");
    file("/missing.conf", "felib {\n name: sample\n library: /no.so\n}\n");
    file("/other.conf", "felib {\n name: other\n library: /sample.so\n}\n");
    EXPECT_EQ(config_feature_module_lib(base, "/open.conf"), -1);
    EXPECT_EQ(config_feature_module_lib(base, "/missing.conf"), -1);
    EXPECT_EQ(config_feature_module_lib(base, "/other.conf"), -2);
    EXPECT_EQ(config_feature_module_lib(base, "/none.conf"), 1);
    log_lines lines = log();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_TRUE(lines[0].starts_with("Error: Library '" + dir + "/open.so' is not loaded"));
    EXPECT_TRUE(lines[1].starts_with("dlopen(" + dir + "/no.so) failed: "));
    EXPECT_EQ(lines[2], "dlsym() failed: ");
    EXPECT_TRUE(lines[3].starts_with("Unable to parse feature module configuration from '" + dir));
}

TEST_F(FeatureModule, SubtreesArePluggedInWhereTheModuleSays) {
    file("/f/1.conf",
         "functions {\n file: /fn\n}\nparam {\n file: /p\n root: new.n%2e1\n}\n"
         "management {\n file: /p\n}\nbackends {\n llconf {\n file: /none\n }\n}\n");
    file("/f/2.conf", "broken {\n");
    file("/f/3.conf", "param {\n file: /p\n root: /\n}\n");
    file("/fn", "twice {\n args: x\n expr: $x * 2\n}\n");
    file("/p", "get: twice(4)\nx {\n get: twice(21)\n}\n");
    EXPECT_EQ(config_feature_modules(g_ccdtree, g_mgmttree, base, "/f", 0), -1);
    EXPECT_EQ(list("", 1), "new,new.n%2e1,new.n%2e1.x,x");
    EXPECT_EQ(get("new.n%2e1"), "8");
    EXPECT_EQ(get("x"), "42");
    EXPECT_EQ(get("x", g_mgmttree), "42");
    EXPECT_TRUE(log().empty());
}
