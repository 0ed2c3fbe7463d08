#include "app.h"

int main(int argc, char** argv) {
    app_run(argc, argv);
    return 0;
}
