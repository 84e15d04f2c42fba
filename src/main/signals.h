// Signals. SIGALRM is the tick's and is taken by the tick thread alone; SIGUSR1 asks for the
// schedules, and the main thread alone takes it; SIGSEGV, SIGTERM and SIGINT end the process.

#pragma once

// Blocks SIGALRM and SIGUSR1 for the calling thread and every thread that it starts from then on.
void blockTickSignals();

// Installs the handlers of SIGUSR1, SIGSEGV and SIGALRM.
void installSignalHandlers();

// The main thread's loop, entered when it holds nothing: takes SIGUSR1 while it is in there, and
// sleeps until SIGTERM or SIGINT has asked for the end or, after a signal, app_quit is set. From
// its return on no stored file is written.
void runMainLoop();
