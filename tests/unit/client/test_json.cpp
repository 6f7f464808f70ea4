// What the client says in JSON, held against its published schema.
#include <fstream>

#include "toy_shell.h"

namespace {

TEST(Output, JsonIsValidWhateverTheBytes) {
    owned_json text = json_text("a\xe9 \xc3\xa9 \xed\xa0\x80 \xc0\xaf\x01");
    ASSERT_TRUE(text);
    owned_str dump{json_dumps(text.get(), JSON_ENCODE_ANY)};
    ASSERT_TRUE(dump);
    EXPECT_NE(std::string_view{dump.get()}.find("\xc3\xa9"), std::string_view::npos);
}

// As much of a validator as the schema of the answers needs.
class json_schema {
  public:
    bool fits(const json_t *value) const { return fits(root_.get(), value); }
    bool is_read() const { return root_ != nullptr; }

  private:
    bool fits(const json_t *rule, const json_t *value) const {
        if (const char *name = json_string_value(json_object_get(rule, "$ref")))
            return fits(json_object_get(json_object_get(root_.get(), "$defs"), name + 8), value);
        const json_t *type = json_object_get(rule, "type");
        const json_t *same = json_object_get(rule, "const");
        if ((type && !any(type, value, has_type)) || (same && !json_equal(same, value)) ||
            json_array_size(value) < at_least(rule, "minItems") ||
            json_string_length(value) < at_least(rule, "minLength"))
            return false;
        const json_t *choices = json_object_get(rule, "enum"),
                     *one = json_object_get(rule, "oneOf");
        if (choices && !any(choices, value, [](auto a, auto b) { return json_equal(a, b) != 0; }))
            return false;
        size_t i, fitting = 0;
        json_t *each;
        json_array_foreach(one, i, each) fitting += fits(each, value);
        if (one && fitting != 1) return false;
        json_array_foreach(json_object_get(rule, "required"), i,
                           each) if (!json_object_get(value, json_string_value(each))) return false;
        json_array_foreach(value, i,
                           each) if (!fits(json_object_get(rule, "items"), each)) return false;
        const char *key;
        json_object_foreach(const_cast<json_t *>(value), key, each) {
            const json_t *member = json_object_get(json_object_get(rule, "properties"), key);
            if (!member && json_is_false(json_object_get(rule, "additionalProperties")))
                return false;
            if (member && !fits(member, each)) return false;
        }
        return true;
    }
    static bool has_type(const json_t *type, const json_t *value) {
        const std::string name = json_string_value(type);
        if (name == "boolean") return json_is_boolean(value);
        const std::array names{"object", "array", "string", "integer"};
        return (name == "null" && json_is_null(value)) ||
               (json_typeof(value) < names.size() && name == names[json_typeof(value)]);
    }
    template <class test>
    static bool any(const json_t *list, const json_t *value, test is) {
        if (!json_is_array(list)) return is(list, value);
        for (size_t i = 0; i < json_array_size(list); i++)
            if (is(json_array_get(list, i), value)) return true;
        return false;
    }
    static size_t at_least(const json_t *rule, const char *key) {
        return static_cast<size_t>(json_integer_value(json_object_get(rule, key)));
    }

    owned_json root_{json_load_file(SOURCE_DIR "/docs/ucfgsh.schema.json", 0, nullptr)};
};

TEST_F(ShellTest, EveryCommandAnswersInJsonAsTheSchemaSays) {
    toy.nodes = {{"commits.history", {".1 7", " OK"}},
                 {"commits.history.8.state", {".1 done", " OK"}},
                 {"commits.history.7.time", {".1 now", " OK"}},
                 {"commits.changes", {".1 - motd: a", ".1 + motd: b", " OK"}},
                 {"commits.diff", {".1 +x", " OK"}},
                 {"commits.confirm", {" ERR Success"}},
                 {"commits.watch", {".1 line", ".2 oops", " OK"}}};
    opts.go_on = true;
    output json{true, false, false, false};
    setenv("EDITOR", "true", 1);
    shell answering{opts, link, json, changes, nullptr, "", false, false, 0};
    std::string lines =
        "frob\nget 'x\nget\nget net.name nosuch net.mode\ncd nosuch.\nset net.name bad\n"
        "submit\nset net.name bad\nend\nsubmit 'set net.name x'\nget net.name\nset motd x\nadd "
        "hosts b\n"
        "del hosts b\nmove hosts a b\nlist\nlist -m\nlist -r net\nshow\nshow -m commits\nattr "
        "net.mode\n"
        "help\nhelp get\nhelp net.name\naccess net.name r\ninfo commits.changes\ncd net\nup\nload "
        "7\nundo 7\n"
        "changes\nchanges -f\ndiff\nrebase\ncommit -m x\nconfirm\ncancel\nhistory\nhistory "
        "7\nhistory 5\n"
        "admin commits.watch\nadmin "
        "commits.confirm\neval 1\ntree\nrevert\nupdate\ncurrent\ndirty\nwhoami\n"
        "show --commands net\nsave /nosuch/x\nsave /dev/null\nload /nosuch\nload /dev/null\nedit "
        "net\nsource /nosuch\nsource " SOURCE_DIR "/LICENSE\nlogin\nraw\nquit\n";
    std::istringstream in{lines};
    script_source source{in, "s"};
    testing::internal::CaptureStdout();
    run_script(answering, source);
    json.end_answer(run_command(answering, split_words("watch").list) == k_exit_done);
    json.flush();
    std::istringstream answers{testing::internal::GetCapturedStdout()};
    json_schema schema;
    ASSERT_TRUE(schema.is_read());
    std::set<std::string> answered;
    for (std::string line; std::getline(answers, line);) {
        owned_json answer{json_loads(line.c_str(), 0, nullptr)};
        EXPECT_TRUE(answer && schema.fits(answer.get())) << line;
        EXPECT_EQ(line.find("Success"), std::string::npos) << line;
        answered.insert(json_string_value(json_object_get(answer.get(), "command")));
    }
    for (const command &row : all_commands())
        EXPECT_TRUE(answered.contains(std::string{row.name})) << row.name;
    EXPECT_FALSE(answered.contains(""));
    EXPECT_FALSE(schema.fits(json_object_of({{"command", "get"}}).get()));
}

}  // namespace
