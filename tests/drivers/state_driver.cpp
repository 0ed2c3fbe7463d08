// SPDX-License-Identifier: MIT
// Saves and reads states by the program's own functions, thousands of times a second:
//   state_driver save VALUE*12   saves two states in turn until it is killed; says so in one line before it begins
//   state_driver load            prints the six values that load_state reads, each with its length in a line before it
//   state_driver judge           takes texts from standard input, each with its length in a line before it, makes each
//                                the state file's and prints what load_state reads, as above
#include "state.cpp"

#include <array>
#include <filesystem>
#include <iostream>

namespace {

void print(const AppState& state) {
    for (const std::string* value :
         {&state.kernel, &state.latest_kernel, &state.mainline, &state.stable, &state.longterm, &state.channel}) {
        std::cout << value->size() << '\n' << *value;
    }
}

[[noreturn]] void save_for_ever(char** values) {
    const std::array<AppState, 2> states{AppState{values[0], values[1], values[2], values[3], values[4], values[5]},
                                         AppState{values[6], values[7], values[8], values[9], values[10], values[11]}};
    save_state(states[1]);
    std::cout << "saving" << std::endl;
    for (size_t i = 0;; ++i) save_state(states[i % 2]);
}

void judge() {
    const std::string path = get_state_path();
    std::string text;
    for (size_t length = 0; std::cin >> length && std::cin.get() == '\n';) {
        text.resize(length);
        std::cin.read(text.data(), static_cast<std::streamsize>(length));
        // Some file systems flush a file to the disk when its contents are replaced, but not a new one.
        std::filesystem::remove(path);
        std::ofstream(path, std::ios::binary) << text;
        print(load_state());
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string task = argc > 1 ? argv[1] : "";
    if (task == "save" && argc == 14) save_for_ever(argv + 2);
    if (task == "load") {
        print(load_state());
    } else if (task == "judge") {
        judge();
    } else {
        return 2;
    }
    return std::cout.flush() ? 0 : 1;
}
