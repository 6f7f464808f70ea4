// The feature modules among the examples, built as their readers build them: with the installed
// headers and pkg-config files alone.

#include <sys/stat.h>

#include "documents.h"

namespace {

constexpr const char *k_each_header = R"(
cd )" STAGED_HEADERS R"( && find . -name '*.h' | sort | while read -r header; do
    printf '#include "%s"\n#include "%s"\n' "$header" "$header" >../alone.c
    for compiler in 'cc -std=c11 -x c' 'c++ -std=c++20 -x c++'; do
        $compiler -Wall -Wextra -Werror -pedantic -fsyntax-only -I. -Iucfgd ../alone.c ||
            echo "$header: $compiler"
    done
done; rm -f ../alone.c
)";

class feature_modules : public document_test {
  protected:
    void build(const std::string &name) {
        const std::string copy = path("/scratch/" + name);
        const std::string printed =
            shell("cp -r " SOURCE_DIR "/examples/" + name + " " + copy + " && make -C " + copy +
                  " CFLAGS=-Werror CXXFLAGS=-Werror install DESTDIR=" + path("") +
                  " >/dev/null && echo built");
        ASSERT_EQ(printed, "built\n");
    }
    /* What a command of the client prints, and its exit status when that is not 0. */
    std::string ask(const std::string &command) {
        return shell("ucfgsh -q " + command + " || echo status $?");
    }
};

TEST_F(document_test, InstalledHeadersStandAloneInCAndCpp) {
    EXPECT_EQ(shell(k_each_header), "");
}

TEST_F(feature_modules, InCBringFunctionsParametersNodesParserModulesAndHooks) {
    ASSERT_NO_FATAL_FAILURE(build("feature-c"));
    put("/etc/sensors", "# limits\ninlet:  235\nnot a line\nboard: 600\n");
    start();
    reload();
    EXPECT_EQ(ask("show sensors"), "sensors\n  inlet\n    limit: 235\n  board\n    limit: 600\n");
    EXPECT_EQ(ask("info sensors.report 235"), "23.5 degrees, ok\n");
    EXPECT_EQ(ask("info sensors.report -5"), "-0.5 degrees, low\n");
    EXPECT_EQ(ask("info sensors.report hot"),
              "ucfgsh: sensors.report: celsius: no number\nstatus 1\n");
    EXPECT_EQ(file("/etc/sensors.stamp"), "<missing>");
    EXPECT_EQ(ask("set sensors.inlet.limit warm"),
              "ucfgsh: sensors.inlet.limit: warm is not in tenths of a degree "
              "(error.sensors.limit: warm)\nstatus 1\n");
    EXPECT_EQ(ask("set sensors.inlet.limit 240"), "");
    EXPECT_EQ(file("/etc/sensors"), "# limits\ninlet: 240\nnot a line\nboard: 600\n");
    EXPECT_EQ(file("/etc/sensors.stamp"), "changed\n");
}

TEST_F(feature_modules, InCppBringTheSame) {
    ASSERT_NO_FATAL_FAILURE(build("feature-cpp"));
    put("/etc/assets", "# tag,kind,place\n79927398713,switch,rack 7\n");
    start();
    reload();
    EXPECT_EQ(ask("info inventory.tag 7992739871"), "79927398713\n");
    EXPECT_EQ(ask("add inventory 79927398714"),
              "ucfgsh: inventory.79927398714: 79927398714 is no tag; its check digit is wrong "
              "(error.inventory.tag: 79927398714)\nstatus 1\n");
    EXPECT_EQ(ask("submit 'add inventory 18' 'set inventory.18.kind router' "
                  "'set inventory.18.place \"rack 7, top\"'"),
              "");
    EXPECT_EQ(ask("submit 'set inventory.18.kind a,b'"),
              "refused set inventory.18.kind a,b: Value cannot be stored in this file "
              "(error.not-storable)\nucfgsh: nothing of the batch was applied\nstatus 1\n");
    const std::string before = "# tag,kind,place\n79927398713,switch,rack 7\n";
    EXPECT_EQ(file("/etc/assets"), before + "18,router,rack 7, top\n");
    EXPECT_EQ(file("/etc/assets.old"), before);
    EXPECT_EQ(ask("del inventory 79927398713"), "");
    EXPECT_EQ(file("/etc/assets"), "# tag,kind,place\n18,router,rack 7, top\n");
}

TEST_F(feature_modules, LibrariesThatOthersMayWriteAreRefused) {
    ASSERT_NO_FATAL_FAILURE(build("feature-c"));
    put("/etc/sensors", "inlet: 235\n");
    chmod(path("/usr/lib/ucfgd/sensors.so").c_str(), 0666);
    chmod(path("/usr/lib/ucfgd/colonfile.so").c_str(), 0664);
    start();
    EXPECT_TRUE(logged("Error: Library '" + path("/usr/lib/ucfgd/sensors.so") +
                       "' is not loaded: others than root may change it"));
    EXPECT_TRUE(logged("plug-in 'colonfile': " + path("/usr/lib/ucfgd/colonfile.so") +
                       ": others than root may write it"));
    EXPECT_EQ(ask("list sensors"), "");
    EXPECT_EQ(ask("get ssh.port"), "22\n") << "the others go on";
}

}  // namespace
