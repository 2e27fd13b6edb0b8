#include <stdio.h>

#include "greet.h"

void greet(const char *name)
{
    printf("Hello, %s!\n", name);
}
