// The host of the fuzz targets. Each input runs as a run of TOLMEK would: on
// the large stack with the stack guard, in a folder of its own, under /N so
// that no program starts. There is no fault scope, so that a fault is the
// sanitizer's to report; a fatal end comes back here through exit_process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Prepares the process once: the run's start-up, a private working folder and
// what every input must find as it was.
void start_host();
// Runs work(arg) as one input; afterwards the option flags, the environment,
// the current folder and the open files are those of the start again.
void run_input(void (*work)(void *), void *arg);
// Writes bytes to the file name (relative, at most one folder deep) in the
// working folder.
void write_input_file(const char *name, const uint8_t *data, size_t size);
// The bytes as 16-bit units, little-endian; a lone last byte is dropped.
std::u16string units_of(const uint8_t *data, size_t size);
// The bytes as UTF-8 text.
std::u16string text_of(const uint8_t *data, size_t size);
