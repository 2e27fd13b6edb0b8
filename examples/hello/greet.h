#ifndef GREET_H
#define GREET_H

/* Prints a greeting for name on standard output. */
void greet(const char *name);

#endif
