/* Preloaded, makes one call of a program fail, to see that the failure is reported, or runs a
   command at one, to see what becomes of what others do to the files meanwhile.

   FAULT_CALLS   a list of names, as in ":read:pread:", or ":malloc:" for all that allocate
   FAULT_AFTER   name of a call before whose first none is counted, as ":open:"; empty for none
   FAULT_AT      the number of the call that fails, from 1; 0 for none
   FAULT_ERROR   errno, or 0 for a transfer of half the bytes
   FAULT_ALWAYS  1 if all calls after it fail too
   FAULT_COUNT   file that gets the number of calls when the program ends
   FAULT_CALLER  file that gets the name of the library whose allocation failed first

   FAULT_FOLDER  calls that concern files in it are told in the file FAULT_TRACE, 64 characters each
   FAULT_RUN     command of the shell, run before the call of number FAULT_MOMENT, from 0

   Standard streams are left alone, so that a report can be read. */
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

static const char *sCalls, *sAfter;
static long sAt, sCount;
static int sError, sAlways;

__attribute__((constructor)) static void Start(void) {
  sAt = atol(getenv("FAULT_AT"));
  sError = atoi(getenv("FAULT_ERROR"));
  sAlways = atoi(getenv("FAULT_ALWAYS"));
  sAfter = getenv("FAULT_AFTER");
  sCalls = getenv("FAULT_CALLS");
}

__attribute__((destructor)) static void Stop(void) {
  const char* const path = getenv("FAULT_COUNT");
  sCalls = NULL;
  if (path && *path) {
    FILE* const file = fopen(path, "w");
    fprintf(file, "%ld", sCount);
    fclose(file);
  }
}

static int Fails(const char* call) {
  if (sCalls && sAfter && strcmp(sAfter, call) == 0) {
    sAfter = NULL;
  }
  if (!sCalls || (sAfter && *sAfter) || !strstr(sCalls, call)) {
    return 0;
  }
  const long number = __atomic_add_fetch(&sCount, 1, __ATOMIC_RELAXED);
  if (sAt == 0 || number < sAt || (number > sAt && !sAlways)) {
    return 0;
  }
  errno = sError;
  return 1;
}

#define REAL(result, name, types) ((result(*) types)dlsym(RTLD_NEXT, name))
#define OPEN REAL(int, "open", (const char*, int, ...))
#define CLOSE REAL(int, "close", (int))
#define WRITE REAL(ssize_t, "write", (int, const void*, size_t))

/* The call names a file by a descriptor, a path, or a path from the folder that a descriptor is. */
static void Moment(const char* call, int fd, const char* path) {
  const char* const folder = getenv("FAULT_FOLDER");
  if (!folder) {
    return;
  }
  const int error = errno;
  char link[40], name[2 * PATH_MAX] = "", record[65];
  snprintf(link, sizeof link, fd < 0 ? "/proc/self/cwd" : "/proc/self/fd/%d", fd);
  if ((path && *path == '/') || readlink(link, name, PATH_MAX) > 0) {
    snprintf(name + strlen(name), PATH_MAX, "%s%s", path ? "/" : "", path ? path : "");
  }
  if (strstr(name, folder)) {
    const int trace = OPEN(getenv("FAULT_TRACE"), O_WRONLY | O_CREAT | O_APPEND, 0600);
    snprintf(record, sizeof record, "%-10.10s %-52.52s\n", call, strrchr(name, '/') + 1);
    const int isMoment = WRITE(trace, record, 64) == 64 &&
                         lseek(trace, 0, SEEK_CUR) / 64 == atol(getenv("FAULT_MOMENT")) + 1;
    CLOSE(trace);
    char* const command[] = {"sh", "-c", getenv("FAULT_RUN"), NULL};
    pid_t child;
    if (isMoment && posix_spawn(&child, "/bin/sh", NULL, NULL, command, command + 3) == 0) {
      waitpid(child, NULL, 0);
    }
  }
  errno = error;
}

/* A function, which Python and the C++ library also call by a second name. */
#define FUNCTION(result, name, types)                                         \
  result Own_##name types __asm__(#name);                                     \
  result Also_##name types __asm__(#name "64") __attribute__((alias(#name))); \
  result Own_##name types
#define FAIL(result, name, types, fd, path, ...)                                        \
  FUNCTION(result, name, types) {                                                       \
    Moment(#name, fd, path);                                                            \
    return Fails(":" #name ":") ? (result)-1 : REAL(result, #name, types)(__VA_ARGS__); \
  }
#define MOVE(name, types, ...)                       \
  FUNCTION(ssize_t, name, types) {                   \
    Moment(#name, fd, NULL);                         \
    if (fd > 2 && Fails(":" #name ":")) {            \
      if (sError) return -1;                         \
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
FAIL(int, fsync, (int fd), fd, NULL, fd)
FAIL(int, flock, (int fd, int how), fd, NULL, fd, how)
FAIL(int, fstat, (int fd, void* to), fd, NULL, fd, to)
FAIL(int, stat, (const char* path, void* to), -1, path, path, to)
FAIL(int, lstat, (const char* path, void* to), -1, path, path, to)
FAIL(int, unlink, (const char* path), -1, path, path)
FAIL(int, link, (const char* from, const char* path), -1, path, from, path)
FAIL(int, linkat, (int k, const char* p, int fd, const char* to, int w), fd, to, k, p, fd, to, w)
FUNCTION(int, close, (int fd)) { /* which loses the descriptor even when it fails */
  Moment("close", fd, NULL);
  const int result = CLOSE(fd);
  return fd > 2 && Fails(":close:") ? -1 : result;
}
FAIL(char*, realpath, (const char* path, char* to), -1, path, path, to)

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

static int AllocationFails(void* caller) {
  if (!Fails(":malloc:")) {
    return 0;
  }
  static int sIsTold = 0;
  const char* const path = getenv("FAULT_CALLER");
  Dl_info info = {0};
  if (!sIsTold && path && *path && dladdr(caller, &info) && info.dli_fname) {
    sIsTold = 1;
    const int file = OPEN(path, O_WRONLY | O_CREAT, 0600);
    if (WRITE(file, info.dli_fname, strlen(info.dli_fname)) < 0) {
      abort();
    }
    CLOSE(file);
  }
  errno = sError;
  return 1;
}

#define CALLER __builtin_extract_return_addr(__builtin_return_address(0))

void* malloc(size_t n) { return AllocationFails(CALLER) ? NULL : __libc_malloc(n); }
void* calloc(size_t k, size_t n) { return AllocationFails(CALLER) ? NULL : __libc_calloc(k, n); }
void* realloc(void* p, size_t n) { return AllocationFails(CALLER) ? NULL : __libc_realloc(p, n); }
