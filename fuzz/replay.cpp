#include "property.h"
#include "support/files.h"

/// Stands in for libFuzzer: runs an empty input and the files that are named.
int main(int argc, char** argv) {
  mvdirigo::check({});
  for (int file = 1; file < argc; ++file) mvdirigo::check(mvdirigo::bytesOf(argv[file]));
}
