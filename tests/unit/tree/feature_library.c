#include "fe/fe.h"

static struct fe_node *answer(struct fe_context *ctx, struct fe_node *call) {
    (void)ctx;
    (void)call;
    return create_fe_node(g_fed_const, "from the library");
}

int felib_register_sample_funcs(struct felib_base *base) {
    base->fed_list = fe_register_func(base->fed_list, "sample_answer", answer, 0);
    return 7;
}
