/* Log-in, resume, log-out. */
#include <algorithm>
#include <array>

#include "conn.h"
#include "ucfgd/guaranteed_memset.h"

namespace {

using namespace ucfg;

struct perm_word {
    std::string_view word;
    int bit;
};

constexpr std::array k_perm_words{
    perm_word{"read", k_ucfg_perm_read},
    perm_word{"write", k_ucfg_perm_write},
    perm_word{"exec", k_ucfg_perm_exec},
};

int parse_perms(std::string_view text) {
    int bits = 0;
    for (const perm_word &row : k_perm_words)
        if (text.find(row.word) != std::string_view::npos) bits |= row.bit;
    return bits;
}

int login(ucfg_conn *conn, const ucfg_credentials &with) {
    std::string_view user = with.user ? with.user : "";
    auto plain = [](char c) { return static_cast<unsigned char>(c) > ' '; };
    if (user.empty() || !std::all_of(user.begin(), user.end(), plain))
        return fail(conn, k_ucfg_usage, "a user name without blanks is needed");
    if (user.size() > k_user_limit) return fail(conn, k_ucfg_too_long, "the user name is too long");
    std::string tag = new_tag(conn);
    std::string text;
    if (with.perms != 0) {
        text += tag + ".1 perms";
        for (const perm_word &row : k_perm_words)
            if ((with.perms & row.bit) != 0) text += " " + std::string{row.word};
        text += '\n';
    }
    if (with.timeout > 0) text += tag + ".2 timeout " + std::to_string(with.timeout) + "\n";
    text += tag + (with.force ? " LOGINFORCE " : " LOGIN ") + std::string{user};
    if (with.password && *with.password) {
        int result = append_word(conn, text, with.password, k_argument_limit, "the password");
        if (result != k_ucfg_ok) return result;
    }
    text += '\n';
    conn->session_id.clear();
    conn->perms = 0;
    int result = exchange(conn, tag, text, conn->timeout,
                          [&](std::string_view qualifier, std::string_view data) {
                              if (qualifier != "1") return;
                              if (data.starts_with("PERMS"))
                                  conn->perms = parse_perms(data.substr(5));
                              else if (data.starts_with("SESSION "))
                                  conn->session_id = data.substr(8);
                          });
    guaranteed_memset(text.data(), 0, text.size());
    if (result == k_ucfg_ok && conn->session_id.empty())
        result = fail(conn, k_ucfg_protocol, "the daemon named no session");
    if (result == k_ucfg_ok) {
        conn->user = user;
    } else {
        conn->session_id.clear();
        conn->perms = 0;
    }
    return result;
}

int resume(ucfg_conn *conn, const std::string &id) {
    constexpr std::string_view k_greeting = "welcome back ";
    if (id.empty() || id.size() > 16 || id.find_first_of(" \n") != std::string::npos)
        return fail(conn, k_ucfg_usage, "there is no session to resume");
    int result = command(conn, "RESUME " + id);
    if (result != k_ucfg_ok) return result;
    if (conn->text.starts_with(k_greeting)) conn->user = conn->text.substr(k_greeting.size());
    if (id != conn->session_id) conn->perms = k_ucfg_perm_all;
    conn->session_id = id;
    return result;
}

}  // namespace

int ucfg_login(ucfg_conn *conn, const struct ucfg_credentials *with) {
    return guarded(conn, [&] {
        return with ? login(conn, *with) : fail(conn, k_ucfg_usage, "a user name is needed");
    });
}

int ucfg_resume(ucfg_conn *conn, const char *session_id) {
    return guarded(conn, [&] { return resume(conn, session_id ? session_id : conn->session_id); });
}

int ucfg_logout(ucfg_conn *conn) {
    return guarded(conn, [&] {
        int result = command(conn, "LOGOUT");
        drop(conn);
        if (result == k_ucfg_ok) {
            conn->session_id.clear();
            conn->perms = 0;
        }
        return result;
    });
}

int ucfg_noop(ucfg_conn *conn) {
    return guarded(conn, [&] { return command(conn, "NOOP"); });
}
