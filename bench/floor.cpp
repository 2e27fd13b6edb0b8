// The floor of a null build: read the makefile once, split its description
// lines into names and stat each distinct name once. No make tool can do less
// and still know that nothing is out of date.
//
// usage: tolmek_floor makefile
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <sys/stat.h>
#include <unordered_set>

int main(int argc, char **argv) {
    if (argc != 2) {
        std::cerr << "usage: tolmek_floor makefile\n";
        return 2;
    }
    std::ifstream in(argv[1]);
    std::unordered_set<std::string> seen;
    std::string line;
    size_t found = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '\t' || line[0] == '#') continue;
        if (line.find('=') != std::string::npos) continue;
        size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && (line[i] == ' ' || line[i] == ':' || line[i] == '\\'))
                ++i;
            size_t start = i;
            while (i < line.size() && line[i] != ' ' && line[i] != ':')
                ++i;
            if (i > start) {
                std::string name = line.substr(start, i - start);
                if (seen.insert(name).second) {
                    struct stat st;
                    if (stat(name.c_str(), &st) == 0) ++found;
                }
            }
        }
    }
    std::printf("%zu names, %zu found\n", seen.size(), found);
    return 0;
}
