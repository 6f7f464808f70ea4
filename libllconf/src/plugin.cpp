#include <dlfcn.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "engine.h"
#include "ucfgd/owners.h"

/* Parsers from shared libraries. A library runs with all rights of the process that loads it, so
 * that it may be written by nobody but root and the user whose process it is. */

namespace {

bool is_trusted_owner(uid_t owner) {
    return owner == 0 || owner == geteuid();
}

/* A directory that others may write lets them replace the file, unless it is sticky. */
bool is_safe_directory(const struct stat &status) {
    bool open_to_others = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return is_trusted_owner(status.st_uid) && (!open_to_others || (status.st_mode & S_ISVTX) != 0);
}

int refuse(const std::string &why, int error) {
    report(LOG_ERR, why);
    errno = error;
    return -1;
}

int check_library(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) < 0) return -1;
    bool safe = S_ISREG(status.st_mode) && is_trusted_owner(status.st_uid) &&
                (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    size_t slash = path.rfind('/');
    std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (safe && stat(directory.c_str(), &status) < 0) return -1;
    if (safe && is_safe_directory(status)) return 0;
    errno = EPERM;
    return -1;
}

int load(const std::string &name, const std::string &library, int flags) {
    using register_function = int (*)();
    if (check_library(library) < 0) {
        int error = errno;
        std::string why{error == EPERM ? "others than root may write it" : errno_text()};
        return refuse("plug-in '" + name + "': " + library + ": " + why, error);
    }
    /* A name without a slash would be looked for elsewhere than where it was checked. */
    std::string path = library.find('/') == std::string::npos ? "./" + library : library;
    void *handle = dlopen(path.c_str(), flags != 0 ? flags : RTLD_NOW);
    if (handle == nullptr) return refuse("plug-in '" + name + "': " + dlerror(), ELIBACC);
    std::string symbol = "cnfmodule_register_" + name;
    void *found = dlsym(handle, symbol.c_str());
    if (found == nullptr) {
        dlclose(handle);
        return refuse("plug-in '" + name + "': " + library + " has no " + symbol, ENOENT);
    }
    if (reinterpret_cast<register_function>(found)() == 0) return 0;
    return refuse("plug-in '" + name + "': " + symbol + " failed", errno != 0 ? errno : EINVAL);
}

}  // namespace

int llconf_check_library(const char *path) {
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    try {
        return check_library(path);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

int cnfmodule_register_plugin(const char *name, const char *library, int flags) {
    if (name == nullptr || library == nullptr) {
        errno = EINVAL;
        return -1;
    }
    try {
        int before = std::exchange(errno, 0);
        if (load(name, library, flags) == 0) {
            errno = before;
            return 0;
        }
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return -1;
}
