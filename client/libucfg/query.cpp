/* Reading: values, listings, attributes, help, access, management nodes. */
#include <deque>

#include "conn.h"

namespace {

using namespace ucfg;

std::string tree_command(ucfg_tree tree, const char *word) {
    return (tree == k_ucfg_management ? "M" : "") + std::string{word};
}

/* A command whose answer is one escaped text; "" when the daemon sent no data line. */
int ask_text(ucfg_conn *conn, const std::string &line, char **out) {
    std::string answer;
    int result = command(conn, line, [&](std::string_view qualifier, std::string_view text) {
        if (qualifier == "1") answer = text;
    });
    if (result == k_ucfg_ok) *out = make_text(unescape_text(answer)).release();
    return result;
}

/* Adds " PATH" to a command line when there is a path. */
int append_optional_path(ucfg_conn *conn, std::string &line, const char *path) {
    if (!path || !*path) return k_ucfg_ok;
    line += ' ';
    line += path;
    return check_path(conn, path);
}

int list(ucfg_conn *conn, std::string line, const char *path, bool plain, ucfg_strings **out) {
    int result = append_optional_path(conn, line, path);
    if (result != k_ucfg_ok) return result;
    std::vector<std::string> names;
    result = command(conn, line, [&](std::string_view qualifier, std::string_view text) {
        if (qualifier == "1") names.push_back(plain ? unescape_text(text) : std::string{text});
    });
    if (result == k_ucfg_ok) *out = make_strings(names).release();
    return result;
}

owned<ucfg_attr, ucfg_destroy_attr> new_attr() {
    owned<ucfg_attr, ucfg_destroy_attr> attr{
        static_cast<ucfg_attr *>(calloc(1, sizeof(ucfg_attr)))};
    if (!attr) throw std::bad_alloc{};
    return attr;
}

int attributes(ucfg_conn *conn, ucfg_tree tree, const char *path, ucfg_attr **out) {
    int result = check_path(conn, path);
    if (result != k_ucfg_ok) return result;
    std::string ops;
    std::optional<std::string> type;
    std::vector<std::string> choices;
    std::vector<std::string> flags;
    long length = 0;
    auto sink = [&](std::string_view qualifier, std::string_view text) {
        if (qualifier == "ops")
            ops = text;
        else if (qualifier == "len")
            length = strtol(std::string{text}.c_str(), nullptr, 10);
        else if (qualifier.starts_with("choices."))
            choices.push_back(unescape_text(text));
        else if (qualifier.starts_with("flags."))
            flags.emplace_back(text);
        else if (qualifier == "type")
            type = std::string{text};
    };
    result = command(conn, tree_command(tree, "ATTR ") + path, sink);
    if (result != k_ucfg_ok) return result;
    auto attr = new_attr();
    attr->ops = make_text(ops).release();
    attr->length = length;
    attr->choices = make_strings(choices).release();
    attr->flags = make_strings(flags).release();
    if (type) attr->type = make_text(*type).release();
    *out = attr.release();
    return k_ucfg_ok;
}

/* Asks for values with a window of requests on their way. */
class value_stream {
  public:
    value_stream(ucfg_conn *conn, const char *const *paths, size_t count,
                 ucfg_value_callback callback, void *data)
        : conn_(conn), paths_(paths), count_(count), callback_(callback), data_(data) {}

    int run() {
        size_t done = 0;
        bool enough = false;
        while (done < (enough ? sent_ : count_)) {
            int result = enough ? k_ucfg_ok : send_more(done);
            bool stop = false;
            if (result == k_ucfg_ok) result = take(done, enough, stop);
            if (result != k_ucfg_ok) return result;
            enough = enough || stop;
            done++;
        }
        conn_->text.clear();
        return k_ucfg_ok;
    }

  private:
    static constexpr size_t k_window = 64;

    /* Tops the window up once it is half empty, so that requests travel in bundles. */
    int send_more(size_t done) {
        if (sent_ - done > k_window / 2) return k_ucfg_ok;
        std::string text;
        for (; sent_ < count_ && sent_ - done < k_window; sent_++) {
            int problem = check_path(conn_, paths_[sent_]);
            std::string tag = problem == k_ucfg_ok ? new_tag(conn_) : "";
            if (problem == k_ucfg_ok) text += tag + " GET " + paths_[sent_] + "\n";
            pending_.push_back({tag, problem});
        }
        return text.empty() ? k_ucfg_ok : send_all(conn_, text);
    }

    int take(size_t index, bool silent, bool &stop) {
        request next = std::move(pending_.front());
        pending_.pop_front();
        verdict end;
        std::string value;
        end.code = next.problem;
        if (!next.tag.empty()) {
            int result = receive(
                conn_, next.tag, conn_->timeout,
                [&](std::string_view qualifier, std::string_view text) {
                    if (qualifier == "1") value = unescape_text(text);
                },
                end);
            if (result != k_ucfg_ok) return result;
            if (end.code == k_ucfg_ok && end.cut) end.code = k_ucfg_too_long;
        }
        if (!silent)
            stop = callback_(index, end.code == k_ucfg_ok ? value.c_str() : nullptr, end.code,
                             data_) != 0;
        return k_ucfg_ok;
    }

    struct request {
        std::string tag; /* empty: not sent, because of the problem */
        int problem;
    };

    ucfg_conn *conn_;
    const char *const *paths_;
    size_t count_;
    ucfg_value_callback callback_;
    void *data_;
    size_t sent_ = 0;
    std::deque<request> pending_;
};

/* Cuts an action's output into its lines. The daemon ends each stream with whatever was left of
 * its last line, mostly nothing; an empty line is therefore held back until another one of that
 * stream proves that it was meant. */
class admin_output {
  public:
    admin_output(ucfg_output_callback callback, void *data) : callback_(callback), data_(data) {}

    void take(std::string_view qualifier, std::string_view text) {
        if (!callback_ || (qualifier != "1" && qualifier != "2")) return;
        int stream = qualifier == "1" ? 1 : 2;
        bool &held = held_[stream - 1];
        if (held) callback_(stream, "", data_);
        held = text.empty();
        if (!held) callback_(stream, std::string{text}.c_str(), data_);
    }

  private:
    ucfg_output_callback callback_;
    void *data_;
    bool held_[2] = {};
};

int admin(ucfg_conn *conn, const char *path, const char *const *args, size_t count,
          admin_output &output) {
    int result = check_path(conn, path, k_admin_word_limit);
    if (result != k_ucfg_ok) return result;
    std::string tag = new_tag(conn);
    std::string text = tag + " ADMIN " + path;
    result = append_words(conn, text, args, count, k_admin_word_limit);
    if (result != k_ucfg_ok) return result;
    text += '\n';
    return exchange(conn, tag, text, conn->job_timeout,
                    [&](std::string_view q, std::string_view line) { output.take(q, line); });
}

}  // namespace

int ucfg_get(ucfg_conn *conn, const char *path, char **value) {
    *value = nullptr;
    return guarded(conn, [&] {
        int result = check_path(conn, path);
        return result == k_ucfg_ok ? ask_text(conn, std::string{"GET "} + path, value) : result;
    });
}

int ucfg_get_many(ucfg_conn *conn, const char *const *paths, size_t count,
                  ucfg_value_callback callback, void *data) {
    return guarded(conn, [&] {
        if (!callback || (count > 0 && !paths)) return fail(conn, k_ucfg_usage, "no callback");
        return value_stream{conn, paths, count, callback, data}.run();
    });
}

int ucfg_list(ucfg_conn *conn, enum ucfg_tree tree, const char *path, ucfg_strings **names) {
    *names = nullptr;
    return guarded(conn, [&] { return list(conn, tree_command(tree, "LIST"), path, true, names); });
}

int ucfg_list_all(ucfg_conn *conn, enum ucfg_tree tree, const char *path, ucfg_strings **paths) {
    *paths = nullptr;
    return guarded(conn,
                   [&] { return list(conn, tree_command(tree, "LISTR"), path, false, paths); });
}

int ucfg_help(ucfg_conn *conn, const char *path, char **text) {
    *text = nullptr;
    return guarded(conn, [&] {
        std::string line = "HELP";
        int result = append_optional_path(conn, line, path);
        return result == k_ucfg_ok ? ask_text(conn, line, text) : result;
    });
}

int ucfg_attr_of(ucfg_conn *conn, enum ucfg_tree tree, const char *path, struct ucfg_attr **attr) {
    *attr = nullptr;
    return guarded(conn, [&] { return attributes(conn, tree, path, attr); });
}

int ucfg_access(ucfg_conn *conn, enum ucfg_tree tree, const char *path, const char *perms,
                const char *const *args, size_t count, char **verdict) {
    *verdict = nullptr;
    return guarded(conn, [&] {
        int result = check_path(conn, path);
        std::string line = tree_command(tree, "ACCESS ") + (path ? path : "");
        if (result == k_ucfg_ok)
            result = append_word(conn, line, perms, k_word_limit, "the permission");
        if (result == k_ucfg_ok) result = append_words(conn, line, args, count, k_argument_limit);
        return result == k_ucfg_ok ? ask_text(conn, line, verdict) : result;
    });
}

int ucfg_info(ucfg_conn *conn, const char *path, const char *const *args, size_t count,
              char **text) {
    *text = nullptr;
    return guarded(conn, [&] {
        int result = check_path(conn, path);
        std::string line = std::string{"INFO "} + (path ? path : "");
        if (result == k_ucfg_ok) result = append_words(conn, line, args, count, k_argument_limit);
        return result == k_ucfg_ok ? ask_text(conn, line, text) : result;
    });
}

int ucfg_admin(ucfg_conn *conn, const char *path, const char *const *args, size_t count,
               ucfg_output_callback callback, void *data) {
    return guarded(conn, [&] {
        admin_output output{callback, data};
        return admin(conn, path, args, count, output);
    });
}
