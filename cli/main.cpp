#include "cli/app.h"

int main(int argc, char** argv) {
    return halvo::cli::run(argc, argv);
}
