#include <cstdio>
#include <cstdlib>
#include <exception>

#include "simulator/program/serve.h"
#include "simulator/program/sim_options.h"
#include "simulator/program/simulation.h"

int main(int argc, char** argv) {
  using namespace mvdirigo;
  int code_of_failure = kWrongOption;
  try {
    const SimOptions options = parseSimOptions(argc, argv);
    Simulation simulation(options);
    code_of_failure = EXIT_FAILURE;
    const int code = serve(simulation.ports(), options.command);
    const bool images_good = simulation.finish(realTime());
    return code != 0 || images_good ? code : EXIT_FAILURE;
  } catch (const NothingToRun& nothing) {
    return nothing.exit_code;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "movane-sim: %s\n", error.what());
    return code_of_failure;
  }
}
