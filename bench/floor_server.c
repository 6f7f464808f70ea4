/* The floor under a GET: the least that any server with this job can do.
 *
 * One thread, select, no parsing beyond the tag and one word, a look-up among eight names, two
 * lines of the sizes that the daemon answers. What it reaches on a machine is what that machine's
 * system calls allow; the daemon is measured as a share of it.
 *
 * usage: floor_server SOCKET */

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { k_buffer = 65536 };

struct client {
    char in[k_buffer];
    size_t used;
};

static const char *const k_names[8] = {
    "system.hostname", "system.contact", "system.location", "network.domain",
    "ssh.port",        "ssh.x11",        "radius.server",   "radius.port",
};

static struct client *g_clients[FD_SETSIZE];

static int listen_on(const char *path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    unlink(path);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || bind(fd, (struct sockaddr *)&address, sizeof address) < 0 ||
        listen(fd, 128) < 0) {
        perror(path);
        exit(1);
    }
    return fd;
}

/* Answers one request line into out; the number of bytes. */
static size_t answer(const char *line, size_t length, char *out) {
    const char *blank = memchr(line, ' ', length);
    size_t tag = blank != NULL ? (size_t)(blank - line) : length;
    const char *word = memchr(line + tag + 1, ' ', length - tag - 1);
    const char *name = word != NULL ? word + 1 : line + length;
    size_t name_length = (size_t)(line + length - name);
    const char *value = "none";
    for (int i = 0; i < 8; i++)
        if (strlen(k_names[i]) == name_length && memcmp(k_names[i], name, name_length) == 0)
            value = "gateway";
    char *p = out;
    memcpy(p, line, tag);
    p += tag;
    memcpy(p, ".1 ", 3);
    p += 3;
    size_t value_length = strlen(value);
    memcpy(p, value, value_length);
    p += value_length;
    *p++ = '\n';
    memcpy(p, line, tag);
    p += tag;
    memcpy(p, " OK\n", 4);
    return (size_t)(p + 4 - out);
}

static void drop(int fd, fd_set *watched) {
    FD_CLR(fd, watched);
    close(fd);
    free(g_clients[fd]);
    g_clients[fd] = NULL;
}

static void serve(int fd, fd_set *watched) {
    static char out[4 * k_buffer];
    struct client *client = g_clients[fd];
    ssize_t n = read(fd, client->in + client->used, sizeof client->in - client->used);
    if (n <= 0) {
        drop(fd, watched);
        return;
    }
    client->used += (size_t)n;
    size_t at = 0;
    size_t answered = 0;
    char *end;
    while ((end = memchr(client->in + at, '\n', client->used - at)) != NULL) {
        answered += answer(client->in + at, (size_t)(end - client->in) - at, out + answered);
        at = (size_t)(end - client->in) + 1;
    }
    memmove(client->in, client->in + at, client->used - at);
    client->used -= at;
    if (answered > 0 && write(fd, out, answered) != (ssize_t)answered) drop(fd, watched);
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: floor_server SOCKET\n");
        return 2;
    }
    int listener = listen_on(argv[1]);
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(listener, &watched);
    int highest = listener;
    for (;;) {
        fd_set ready = watched;
        if (select(highest + 1, &ready, NULL, NULL, NULL) < 0) continue;
        for (int fd = 0; fd <= highest; fd++) {
            if (!FD_ISSET(fd, &ready)) continue;
            if (fd != listener) {
                serve(fd, &watched);
                continue;
            }
            int client = accept(listener, NULL, NULL);
            if (client < 0 || client >= FD_SETSIZE) {
                if (client >= 0) close(client);
                continue;
            }
            g_clients[client] = calloc(1, sizeof(struct client));
            FD_SET(client, &watched);
            if (client > highest) highest = client;
        }
    }
}
