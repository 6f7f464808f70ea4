/* Expression functions of the sensors module. The daemon calls felib_register_sensors_funcs once,
 * before it parses any expression. */

#include <errno.h>
#include <fe/fe.h>
#include <stdio.h>
#include <stdlib.h>

/* A whole number, or the number in `error` for a text that is none. */
static long number(const char *text, int *error) {
    char *end = NULL;
    errno = 0;
    long value = strtol(text, &end, 10);
    *error = end == text || *end != '\0' || errno != 0;
    return value;
}

/* celsius(tenths): tenths of a degree as degrees, with one decimal. Fails for no number. */
static fe_node *fe_func_celsius(fe_context *ctx, fe_node *call) {
    fe_node *arguments = eval_fe_expr_list(ctx, call->first_child);
    fe_node *result = NULL;
    if (fe_argc(arguments) == 1) {
        int error = 0;
        long tenths = number(arguments->text, &error);
        if (!error) {
            char text[40];
            snprintf(text, sizeof text, "%s%ld.%ld", tenths < 0 && tenths > -10 ? "-" : "",
                     tenths / 10, labs(tenths % 10));
            result = create_fe_node(g_fed_const, text);
        } else {
            fe_fail(EINVAL, arguments->text, "no number");
        }
    } else {
        fe_fail(EINVAL, NULL, "one argument expected");
    }
    destroy_fe_node_list(arguments);
    return result;
}

/* sensorstate(value, low, high): "low", "ok" or "high". The user data says what to answer for
 * something that is no number. */
static fe_node *fe_func_sensorstate(fe_context *ctx, fe_node *call) {
    fe_node *arguments = eval_fe_expr_list(ctx, call->first_child);
    const char *state = call->fed->user_data;
    if (fe_argc(arguments) == 3) {
        int errors[3];
        long value = number(arguments->text, &errors[0]);
        long low = number(arguments->next->text, &errors[1]);
        long high = number(arguments->next->next->text, &errors[2]);
        if (!errors[0] && !errors[1] && !errors[2])
            state = value < low ? "low" : value > high ? "high" : "ok";
    }
    fe_node *result = create_fe_node(g_fed_const, state);
    destroy_fe_node_list(arguments);
    return result;
}

int felib_register_sensors_funcs(felib_base *base);

int felib_register_sensors_funcs(felib_base *base) {
    base->fed_list = fe_register_func(base->fed_list, "celsius", fe_func_celsius, NULL);
    base->fed_list =
        fe_register_func(base->fed_list, "sensorstate", fe_func_sensorstate, "unknown");
    return 0;
}
