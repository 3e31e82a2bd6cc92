// Entry point of kestrawind: installs the operating system's runtime and runs Main.
#include "frontend/main_console.h"

int main() { return kw::RunProgram(); }
