#include <sys/socket.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "ucfg/ucfg.h"
#include "ucfgd/owners.h"

/* What a daemon, or who stands in for one, answers to the client library. The first byte chooses
 * the call; in the rest "@" stands for the tag of the request, and the connection ends behind it.
 * Every call says how it went and hands out records that are whole, or none. */

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void take_text(int code, char *text) {
    require((code == k_ucfg_ok) == (text != nullptr));
    owned_str paths{ucfg_path_print(text ? text : "a.%2e")};
    require(paths != nullptr);
    ucfg_free(text);
}

void take_strings(int code, ucfg_strings *strings) {
    require((code == k_ucfg_ok) == (strings != nullptr));
    for (size_t i = 0; strings && i < strings->count; i++)
        require(strings->items[i] != nullptr);
    ucfg_destroy_strings(strings);
}

int get(ucfg_conn *conn) {
    char *text = nullptr;
    const int code = ucfg_get(conn, "a", &text);
    take_text(code, text);
    return code;
}

int help(ucfg_conn *conn) {
    char *text = nullptr;
    const int code = ucfg_help(conn, "a", &text);
    take_text(code, text);
    return code;
}

int list(ucfg_conn *conn) {
    ucfg_strings *names = nullptr;
    const int code = ucfg_list(conn, k_ucfg_parameters, "a", &names);
    take_strings(code, names);
    return code;
}

int list_all(ucfg_conn *conn) {
    ucfg_strings *paths = nullptr;
    const int code = ucfg_list_all(conn, k_ucfg_management, nullptr, &paths);
    take_strings(code, paths);
    return code;
}

int attributes(ucfg_conn *conn) {
    ucfg_attr *attr = nullptr;
    const int code = ucfg_attr_of(conn, k_ucfg_parameters, "a", &attr);
    require((code == k_ucfg_ok) == (attr != nullptr));
    require(!attr || (attr->ops && attr->choices && attr->flags));
    ucfg_destroy_attr(attr);
    return code;
}

int log_in(ucfg_conn *conn) {
    const ucfg_credentials who{"root", "secret", 0, 0, 0};
    const int code = ucfg_login(conn, &who);
    require((code == k_ucfg_ok) == (ucfg_session_id(conn)[0] != '\0'));
    return code;
}

int submit(ucfg_conn *conn) {
    const ucfg_item items[] = {{k_ucfg_set, "a", "1", nullptr}, {k_ucfg_move, "b", "x", "y"}};
    ucfg_batch *batch = nullptr;
    const int code = ucfg_submit(conn, items, 2, &batch);
    for (size_t i = 0; batch && i < batch->count; i++)
        require(batch->results[i].text && batch->results[i].args);
    ucfg_destroy_batch(batch);
    return code;
}

int many(ucfg_conn *conn) {
    const char *const paths[] = {"a", "b", "c"};
    size_t seen = 0;
    const ucfg_value_callback take = [](size_t index, const char *value, int code, void *data) {
        require(index == (*static_cast<size_t *>(data))++ &&
                (code == k_ucfg_ok) == (value != nullptr));
        return 0;
    };
    return ucfg_get_many(conn, paths, 3, take, &seen);
}

int admin(ucfg_conn *conn) {
    const ucfg_output_callback take = [](int stream, const char *text, void *) {
        require((stream == 1 || stream == 2) && text);
    };
    return ucfg_admin(conn, "a", nullptr, 0, take, nullptr);
}

int request(ucfg_conn *conn) {
    ucfg_reply *reply = nullptr;
    const int code = ucfg_request(conn, nullptr, 0, "LISTR a", &reply);
    for (const ucfg_line *line = reply ? reply->lines : nullptr; line; line = line->next)
        require(line->qualifier && line->text);
    ucfg_destroy_reply(reply);
    return code;
}

int dirty(ucfg_conn *conn) {
    int value = 0;
    return ucfg_dirty(conn, &value);
}

int raw(ucfg_conn *conn) {
    char *line = nullptr;
    const int code = ucfg_raw_read(conn, &line);
    take_text(code, line);
    return code;
}

constexpr int (*k_calls[])(ucfg_conn *conn) = {
    get, help, list, list_all, attributes, log_in, many, admin, request, dirty, raw, submit,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 1) return 0;
    std::string reply;
    for (size_t i = 1; i < size && reply.size() < 65536; i++)
        reply += data[i] == '@' ? std::string{"u1"} : std::string(1, static_cast<char>(data[i]));
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    const unique_fd daemon{ends[1]};
    require(send(daemon.get(), reply.data(), reply.size(), MSG_DONTWAIT) ==
            static_cast<ssize_t>(reply.size()));
    shutdown(daemon.get(), SHUT_WR);
    const owned<ucfg_conn, ucfg_destroy> conn{ucfg_create()};
    ucfg_set_timeout(conn.get(), 1000);
    require(ucfg_attach(conn.get(), ends[0]) == k_ucfg_ok);
    const int code = k_calls[data[0] % (sizeof k_calls / sizeof k_calls[0])](conn.get());
    require(code == ucfg_last(conn.get()) && ucfg_text(conn.get()) && ucfg_code_name(code));
    return 0;
}
