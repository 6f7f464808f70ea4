#ifndef UCFGD_FUZZ_SYNTAXES_H
#define UCFGD_FUZZ_SYNTAXES_H

#include <array>

/* The syntaxes of files, each with options that matter. A target's first byte chooses one. */
struct syntax_case {
    const char *parser;
    const char *options;
    bool exact;  // every tree that is read can be written anew and reads back exactly
};

#ifdef WITH_LENSES
constexpr std::array<syntax_case, 4> k_syntaxes = {{
    {"augeas", "lens=Hosts", true},
    {"augeas", "lens=Sshd", true},
    {"augeas", "lens=Shellvars", true},
    {"augeas", "lens=Resolv", true},
}};
#else
constexpr std::array<syntax_case, 18> k_syntaxes = {{
    {"tavconf", "", true},
    {"python", "", true},
    {"shellvars", "", false},
    {"ini", "", false},
    {"ini", "separator=blank comment=%", false},
    {"table", "columns=name/password/uid/gid/gecos/home/shell", false},
    {"table", "columns=device/dir/type/rest key=dir separator=blank", false},
    {"interfaces", "", false},
    {"mgetty", "", false},
    {"lines", "", false},
    {"hosts", "", false},
    {"keyvalue", "", false},
    {"keyvalue", "separator==", false},
    {"keyvalue", "columns=a/b only=key comment=;", false},
    {"keyvalue", "separator=\"=\" kernel-names bare", false},
    {"keyvalue", "nocase trailing equals quoted spelling=Port", false},
    {"aliases", "", false},
    {"interfaces", "ifupdown", false},
}};
#endif

#endif
