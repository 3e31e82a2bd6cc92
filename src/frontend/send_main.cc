// Entry point of kestrawind-send: kestrawind's run for scripts, with an exit status by cause.
#include "frontend/send_console.h"

int main() { return kw::RunSendProgram(); }
