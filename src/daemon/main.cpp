#include "daemon/startup.h"

int main(int argc, char **argv) {
    return ucfgd_main(argc, argv);
}
