/* Preloaded, makes a program serve runs of itself: one more for every byte that it reads, forked
   where main() would begin, so that loading it is paid for once. Run and server are the same program
   with the same arguments in the same folder.

   SERVER_PIPES  four descriptors: to be asked for runs, to tell the process of each when it begins
                 and its status and peak memory when it has ended, standard output, standard error */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

typedef int Main(int, char**, char**);
static Main* sMain;

static void Tell(int pipe, int64_t number) {
  if (write(pipe, &number, sizeof number) != sizeof number) {
    _exit(126);
  }
}

static int Serve(int argc, char** argv, char** environment) {
  int requests, answers, out, err;
  if (sscanf(getenv("SERVER_PIPES"), "%d %d %d %d", &requests, &answers, &out, &err) != 4) {
    return 126;
  }
  for (char byte; read(requests, &byte, 1) == 1;) {
    const pid_t child = fork();
    if (child == 0) {
      dup2(out, 1);
      dup2(err, 2);
      close(requests);
      close(answers);
      return sMain(argc, argv, environment);
    }
    Tell(answers, child);
    int status;
    struct rusage usage;
    wait4(child, &status, 0, &usage);
    Tell(answers, status);
    Tell(answers, usage.ru_maxrss);
  }
  _exit(0);
}

int __libc_start_main(Main* main, int argc, char** argv, void (*init)(void), void (*fini)(void),
                      void (*atEnd)(void), void* stackEnd) {
  typedef int Start(Main*, int, char**, void (*)(void), void (*)(void), void (*)(void), void*);
  Start* const start = (Start*)dlsym(RTLD_NEXT, "__libc_start_main");
  sMain = main;
  return start(Serve, argc, argv, init, fini, atEnd, stackEnd);
}
