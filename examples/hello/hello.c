#include "greet.h"

int main(int argc, char **argv)
{
    int i;

    if (argc < 2) {
        greet("world");
        return 0;
    }
    for (i = 1; i < argc; i++)
        greet(argv[i]);
    return 0;
}
