#include "tree/param_error.h"

#include <array>
#include <cstdio>
#include <new>
#include <utility>

#include "tree/param_failure.h"
#include "ucfgd/owners.h"

param_error *ccd_param_error = nullptr;

namespace {

using owned_error = owned<param_error, destroy_param_error>;

owned_str copy_of(const char *text) {
    return text ? dup_str(text) : nullptr;
}

}  // namespace

void ccd_clear_error(void) {
    ccd_forget_failure();
    destroy_param_error(std::exchange(ccd_param_error, nullptr));
}

void ccd_set_error(const char *msg, const char *id) {
    owned_error error{new (std::nothrow) param_error{}};
    if (error) {
        error->msg = copy_of(msg).release();
        error->id = copy_of(id).release();
    } else {
        errno = ENOMEM;
    }
    destroy_param_error(std::exchange(ccd_param_error, error.release()));
}

int ccd_add_error_arg(const char *text) {
    param_error *error = ccd_param_error;
    if (!error) return -1;
    line *argument = create_line(text);
    if (!argument) return -1;
    if (error->last_arg) {
        error->last_arg->next = argument;
    } else {
        error->args = append_line(error->args, argument);
    }
    error->last_arg = argument;
    return 0;
}

int ccd_add_error_argi(int number) {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%d", number);
    return ccd_add_error_arg(text.data());
}

param_error *ccd_get_error(void) {
    return ccd_param_error;
}

param_error *ccd_copy_and_clear_error(void) {
    return std::exchange(ccd_param_error, nullptr);
}

void destroy_param_error(param_error *error) {
    if (!error) return;
    std::free(error->msg);
    std::free(error->id);
    destroy_line_list(error->args);
    delete error;
}
