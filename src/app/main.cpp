#include "app/vaskel_host.h"

int main(int argc, char** argv) {
    return VaskelHost::main(argc, argv);
}
