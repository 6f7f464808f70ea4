#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <array>

#include "daemon/trace.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "tree/arguments.h"

/* Time texts and seconds since the epoch, in local time. Seconds are read and printed whole, beyond
 * the year 2038 too. */

namespace {

fe_node *seconds_node(time_t seconds) {
    std::array<char, 24> text;
    snprintf(text.data(), text.size(), "%" PRIdMAX, static_cast<intmax_t>(seconds));
    return const_node(text.data());
}

/* The fields that strptime does not reach stay zero, so daylight saving counts as not in effect and
 * a text that does not match the format gives the time of the fields read so far. */
fe_node *fe_func_mktime(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 2) return answer_wrong_count(memory, arguments);
    tm broken_down{};
    strptime(arguments[1], arguments[0], &broken_down);
    errno_guard keep;
    return seconds_node(mktime(&broken_down));
}

fe_node *fe_func_fmttime(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    call_arguments arguments{ctx, call};
    if (arguments.count() != 2) return answer_wrong_count(memory, arguments);
    errno_guard keep;
    tzset(); /* the zone may have been changed; mktime looks by itself */
    auto seconds = static_cast<time_t>(strtoll(arguments[1], nullptr, 10));
    tm broken_down{};
    std::array<char, 256> text;
    if (localtime_r(&seconds, &broken_down) == nullptr ||
        strftime(text.data(), text.size(), arguments[0], &broken_down) == 0)
        return const_node("");
    return const_node(text.data());
}

fe_node *fe_func_time(fe_context *, fe_node *) {
    trace(4, "%s\n", __func__);
    return seconds_node(time(nullptr));
}

struct function_row {
    const char *name;
    fe_node *(*function)(fe_context *, fe_node *);
};

constexpr std::array k_functions{
    function_row{"mktime", fe_func_mktime},
    function_row{"fmttime", fe_func_fmttime},
    function_row{"admgettime", fe_func_time},
};

}  // namespace

fe_def *fe_register_adm_misc_funcs(fe_def *list) {
    for (const auto &row : k_functions)
        list = fe_register_func(list, row.name, row.function, nullptr);
    return list;
}
