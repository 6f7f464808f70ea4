#include "tree/kept.h"

#include <array>
#include <cstdlib>
#include <random>

#include "backend_fixture.h"
#include "daemon/log.h"
#include "tree/ccdtree.h"
#include "tree/param_ops.h"
#include "tree/types.h"

namespace {

using owned_path = owned<param_path, destroy_param_path>;

constexpr const char *k_hosts = "10.0.0.1 alpha\n10.0.0.2 beta\n";
constexpr std::array k_names = {"alpha", "beta", "gamma"};

/* What they answer changes with every call. */
fe_node *tick(fe_context * /*ctx*/, fe_node * /*call*/) {
    static int ticks = 0;
    return create_fe_node(g_fed_const, std::to_string(++ticks).c_str());
}

/* Asks within an evaluation, as functions do that compare parameters. */
fe_node *within(fe_context *ctx, fe_node *call) {
    const owned_path name{find_ccd_param("name", g_ccdtree)};
    owned_str own;
    ccd_param_ppath_kept_get(static_cast<trns_ctx *>(ctx->user_data), name.get(), own);
    return tick(ctx, call);
}

constexpr const char *k_tree = R"(
access: $perm == 'r' || llget('hosts', '10.0.0.1/name') == 'beta'
name {
    get: llget('hosts', '10.0.0.1/name')
}
none {
    get: llgetdefault('hosts', '10.0.0.9/name', 'none')
}
list {
    get: join(' ', lllist('hosts', '.'))
}
each {
    * {
        common: set('host', slashify($0))
        access: $perm == 'w' || llexists('hosts', $host)
        name {
            get: llget('hosts', $host .. '/name')
        }
    }
}
inner {
    get: paramget('name') .. paramget('list') .. paramexists('none') .. istype('x', 'no')
}
before {
    get: committed(llget('hosts', '10.0.0.1/name')) .. llcompare('hosts', 'lines')
}
made {
    get: llget('made', 'line')
}
late {
    get: default(join(' ', lllist('late', '')), 'none')
}
line {
    get: llget('lines', 'line')
}
login {
    get: llmgetty_getlogintype('serial')
}
ticks {
    get: tick()
}
some {
    access: tick() % 2
    get: llget('hosts', '10.0.0.1/name') == 'alpha' ? tick() : 'none'
}
file {
    get: first(readlines('state'))
}
dirty {
    get: llisdirty('hosts')
}
told {
    get: default(paramget('fails'), 'none')
}
fails {
    get: fail()
}
)";

/* Sessions that edit, commit and revert at random, beside others who edit the files, and what is
 * kept for them against what an evaluation says. */
class kept : public backend_test {
  protected:
    kept() {
        functions = fe_register_typefuncs(fe_register_paramfuncs(functions));
        functions = fe_register_func(functions, "tick", tick, nullptr);
        functions = fe_register_func(functions, "within", within, nullptr);
        put("hosts", k_hosts);
        put("lines", "one\n");
        put("state", "0\n");
        put("serial", "*\t-\ta_ppp\t/usr/local/sbin/pppd\n");
        modules(
            "hosts {\n file: hosts\n flags: always-revert\n}\nlines {\n file: lines\n}\n"
            "serial {\n module: mgetty\n file: serial\n}\n"
            "made {\n module: lines\n depends: state\n pipe-in: cat " +
            path("state") + "\n pipe-out: cat\n}\n");
        define(k_tree);
        for (owned_ctx &session : sessions)
            session.reset(trns_copy_ctx(g_trns_ctx));
    }
    ~kept() override {
        for (owned_ctx &session : sessions)
            session.reset();
        destroy_ccdtree(std::exchange(g_ccdtree, nullptr));
    }
    void define(const std::string &text) const {
        destroy_ccdtree(std::exchange(g_ccdtree, create_ccdtree()));
        put("tree.conf", text);
        ccdtree_readconf(g_ccdtree, path("tree.conf").c_str(), functions);
    }
    size_t any(size_t count) { return std::uniform_int_distribution<size_t>{0, count - 1}(random); }
    template <size_t count>
    std::string one(const std::array<const char *, count> &of) {
        return of[any(count)];
    }

    std::string an_edit() {
        const std::string host = one(std::array{"10.0.0.1", "10.0.0.2", "10.0.0.9"});
        switch (any(7)) {
            case 0:
                return "lladdne('hosts', '', '" + host + "') && lladdne('hosts', '" + host +
                       "', 'name') && llset('hosts', '" + host + "/name', 'x')";
            case 1:
                return "lldel('hosts', '', '" + host + "')";
            case 2:
                return "llswap('hosts', '', '10.0.0.1', '10.0.0.2')";
            case 3:
                return "llmgetty_setlogintype('serial', '" + one(std::array{"login", "ppp"}) + "')";
            case 4:
                return "llset('lines', 'line', '" + one(k_names) + "')";
            default:
                return "llset('hosts', '" + host + "/name', '" + one(k_names) + "')";
        }
    }

    void act(owned_ctx &session) {
        switch (any(12)) {
            case 0:
                eval(an_edit(), session.get());
                break;
            case 1: /* as a request does, which may be refused */
            case 2: {
                owned_ctx batch{trns_copy_ctx(session.get())};
                eval(an_edit(), batch.get());
                check(batch.get());
                if (any(2) == 0) {
                    trns_submit_ctx(batch.get());
                } else {
                    trns_cancel_ctx(batch.get());
                }
                check(batch.get());
                break;
            }
            case 3:
                trns_commit_ctx(session.get());
                trns_inc_ctx_serial(session.get());
                trns_revert_ctx(session.get());
                break;
            case 4:
                trns_revert_ctx(session.get());
                break;
            case 5: /* the submit of a commit whose child fails */
                trns_submit_ctx(session.get());
                check(g_trns_ctx);
                trns_inc_ctx_serial(session.get());
                trns_revert_ctx(session.get());
                break;
            case 6: /* somebody else edits */
                put("hosts.new", any(3) == 0 ? k_hosts : "10.0.0.1 " + one(k_names) + "\n");
                std::filesystem::rename(path("hosts.new"), path("hosts"));
                break;
            case 7:
                put("new", std::to_string(any(3)) + "\n");
                std::filesystem::rename(path("new"), path("state"));
                break;
            case 8: /* the hook of a commit, and one that has a module of its own */
                eval(any(2) == 0 ? "llmodcreate('late', 'lines', 'lines')" : an_edit());
                break;
            case 9:
                ll_contexts_release(item("late"));
                break;
            case 10:
                session.reset();
                session.reset(trns_copy_ctx(g_trns_ctx));
                break;
            case 11:
                if (any(2) == 0) define(k_tree + std::string(any(2) == 0 ? "" : "access: '1'\n"));
                break;
        }
    }

    static void check(trns_ctx *ctx) {
        for (const char *asked : {"name", "none", "list", "each.10%2e0%2e0%2e1.name",
                                  "each.10%2e0%2e0%2e2.name", "inner", "before", "made", "line",
                                  "late", "login", "ticks", "some", "file", "dirty", "told"}) {
            const owned_path resolved{find_ccd_param(asked, g_ccdtree)};
            check_value(asked, ctx, resolved.get());
            for (const char *perm : {"r", "w"})
                check_access(asked, ctx, resolved.get(), perm);
        }
    }
    /* What is kept last meets what happens next. */
    void check_all() {
        const size_t first = any(sessions.size() + 1);
        for (size_t i = 0; i <= sessions.size(); i++) {
            const size_t at = (first + i) % (sessions.size() + 1);
            check(at == sessions.size() ? g_trns_ctx : sessions[at].get());
        }
    }
    static void check_value(const std::string &asked, trns_ctx *ctx, const param_path *resolved) {
        const unsigned long before = g_kept_counts.hits;
        owned_str own;
        const char *answer = ccd_param_ppath_kept_get(ctx, resolved, own);
        if (g_kept_counts.hits == before) return;
        EXPECT_TRUE(asked != "ticks" && asked != "file" && asked != "dirty" && asked != "told");
        EXPECT_TRUE(asked != "late" || item("late", ctx)) << "the log tells of each time";
        const owned_str fresh{ccd_param_ppath_get(ctx, resolved)};
        EXPECT_STREQ(answer, fresh.get()) << asked;
    }
    static void check_access(const std::string &asked, trns_ctx *ctx, const param_path *resolved,
                             const char *perm) {
        auto evaluate = [=] {
            const owned<fe_context, destroy_fe_context> own{create_fe_context(nullptr, ctx)};
            fe_set(own.get(), "perm", perm);
            return ccd_param_ppath_allows(own.get(), resolved, nullptr);
        };
        const unsigned long before = g_kept_counts.hits;
        const bool granted = kept_access(ctx, resolved, *perm == 'r' ? 4 : 2, evaluate);
        if (g_kept_counts.hits == before) return;
        EXPECT_NE(asked, "some");
        EXPECT_EQ(granted, evaluate() > 0) << asked;
    }

    std::mt19937 random{1};
    std::array<owned_ctx, 3> sessions;
};

TEST_F(kept, AnAnswerIsKeptForAsLongAsAnEvaluationSaysTheSame) {
    const char *rounds = std::getenv("UCFGD_ROUNDS");
    const int steps = 400 * (rounds ? std::atoi(rounds) : 1);
    g_kept_counts = {};
    for (int step = 0; step < steps && !HasFailure(); step++) {
        act(sessions[any(sessions.size())]);
        check_all();
    }
    EXPECT_GT(g_kept_counts.hits, static_cast<unsigned long>(steps) * 2);
    RecordProperty("hits", static_cast<int>(g_kept_counts.hits));
    RecordProperty("misses", static_cast<int>(g_kept_counts.misses));
}

TEST_F(kept, SessionsThatHaveChangedNothingShareWhatIsKept) {
    auto hits = [this](size_t session, const char *asked = "name") {
        const owned_path name{find_ccd_param(asked, g_ccdtree)};
        const unsigned long before = g_kept_counts.hits;
        owned_str own;
        ccd_param_ppath_kept_get(sessions[session].get(), name.get(), own);
        return g_kept_counts.hits - before;
    };
    EXPECT_EQ(hits(0) + hits(1) + hits(2), 2U);
    eval("llset('hosts', '10.0.0.1/name', 'mine')", sessions[2].get());
    EXPECT_EQ(hits(2) + hits(0), 0U);
    EXPECT_EQ(hits(1) + hits(0), 2U);
    EXPECT_EQ(hits(2) + hits(2), 1U);
    eval("llset('lines', 'line', 'two')");
    const unsigned long before = g_kept_counts.hits;
    eval("within()", sessions[0].get());
    eval("within()", sessions[0].get());
    EXPECT_EQ(g_kept_counts.hits, before) << "used where other limits count";
    EXPECT_EQ(hits(0), 0U) << "kept where other limits counted";
    log_set_level(LOG_EMERG);
    EXPECT_EQ(hits(0, "late") + hits(0, "late"), 0U) << "the log's level changes what is kept";
    log_set_level(LOG_DEBUG);
}

}  // namespace
