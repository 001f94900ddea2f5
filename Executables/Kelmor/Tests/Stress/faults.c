/* Preloaded, makes one call of a program fail, to see that the failure is reported, or runs a
   command at one, to see what becomes of what others do to the files meanwhile.

   FAULT_FOLDER  calls that concern files in it are told in the file FAULT_TRACE, 64 characters each
   FAULT_AT      the number of the call at which something happens, from 0
   FAULT_RUN     the command that the shell runs before that call; if empty, the call fails
   FAULT_ERROR   its errno, or 0 for a transfer of half the bytes
   FAULT_ALWAYS  1 if all later calls of the same function fail too */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

static const char* sFailing; /* the function whose later calls fail too */

#define REAL(result, name, types) ((result(*) types)dlsym(RTLD_NEXT, name))

/* The number of the record, from 0. */
static long Record(const char* call, const char* name) {
  char record[65];
  snprintf(record, sizeof record, "%-10.10s %-52.52s\n", call, name);
  const int trace = REAL(int, "open", (const char*, int, ...))(
      getenv("FAULT_TRACE"), O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (REAL(ssize_t, "write", (int, const void*, size_t))(trace, record, 64) != 64) {
    abort();
  }
  const long end = lseek(trace, 0, SEEK_CUR);
  REAL(int, "close", (int))(trace);
  return end / 64 - 1;
}

/* Whether the call fails. It names a file by a descriptor, a path, or a path from the folder that a
   descriptor is. */
static int Fails(const char* call, int fd, const char* path) {
  const char *const folder = getenv("FAULT_FOLDER"), *const run = getenv("FAULT_RUN");
  const int error = errno;
  char link[40], name[2 * PATH_MAX] = "";
  snprintf(link, sizeof link, fd < 0 ? "/proc/self/cwd" : "/proc/self/fd/%d", fd);
  if ((path && *path == '/') || readlink(link, name, PATH_MAX) > 0) {
    snprintf(name + strlen(name), PATH_MAX, "%s%s", path ? "/" : "", path ? path : "");
  }
  if (strstr(name, folder)) {
    const int isMoment = Record(call, strrchr(name, '/') + 1) == atol(getenv("FAULT_AT"));
    char* const command[] = {"sh", "-c", (char*)run, NULL};
    pid_t child;
    if (isMoment && !*run) {
      sFailing = call;
    } else if (isMoment && posix_spawn(&child, "/bin/sh", NULL, NULL, command, command + 3) == 0) {
      waitpid(child, NULL, 0);
    }
    if (sFailing && (isMoment || *getenv("FAULT_ALWAYS") == '1') && strcmp(sFailing, call) == 0) {
      errno = atoi(getenv("FAULT_ERROR"));
      return 1;
    }
  }
  errno = error;
  return 0;
}

/* A function, which Python and the C++ library also call by a second name. */
#define FUNCTION(result, name, types)                                         \
  result Own_##name types __asm__(#name);                                     \
  result Also_##name types __asm__(#name "64") __attribute__((alias(#name))); \
  result Own_##name types
#define FAIL(result, name, types, fd, path, ...)                                             \
  FUNCTION(result, name, types) {                                                            \
    return Fails(#name, fd, path) ? (result)-1 : REAL(result, #name, types)(__VA_ARGS__);    \
  }
#define MOVE(name, types, ...)                       \
  FUNCTION(ssize_t, name, types) {                   \
    if (Fails(#name, fd, NULL)) {                    \
      if (errno) return -1;                         \
      n = n > 1 ? n / 2 : n;                         \
    }                                                \
    return REAL(ssize_t, #name, types)(__VA_ARGS__); \
  }

MOVE(read, (int fd, void* to, size_t n), fd, to, n)
MOVE(write, (int fd, const void* from, size_t n), fd, from, n)
MOVE(pread, (int fd, void* to, size_t n, off_t at), fd, to, n, at)
MOVE(pwrite, (int fd, const void* from, size_t n, off_t at), fd, from, n, at)
FAIL(int, open, (const char* path, int flags, mode_t mode), -1, path, path, flags, mode)
FAIL(int, ftruncate, (int fd, off_t n), fd, NULL, fd, n)
FAIL(int, close, (int fd), fd, NULL, fd)
FAIL(int, fsync, (int fd), fd, NULL, fd)
FAIL(int, flock, (int fd, int how), fd, NULL, fd, how)
FAIL(int, fstat, (int fd, void* to), fd, NULL, fd, to)
FAIL(int, stat, (const char* path, void* to), -1, path, path, to)
FAIL(int, lstat, (const char* path, void* to), -1, path, path, to)
FAIL(int, unlink, (const char* path), -1, path, path)
FAIL(int, link, (const char* from, const char* path), -1, path, from, path)
FAIL(int, linkat, (int k, const char* p, int fd, const char* to, int w), fd, to, k, p, fd, to, w)

