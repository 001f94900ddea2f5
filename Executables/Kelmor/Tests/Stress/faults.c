/* Preloaded, makes one call of a program fail, to see that the failure is reported.

   FAULT_CALLS   a list of names, as in ":read:pread:", or ":malloc:" for all that allocate
   FAULT_AFTER   name of a call before whose first none is counted, as ":open:"; empty for none
   FAULT_AT      the number of the call that fails, from 1; 0 for none
   FAULT_ERROR   errno, or 0 for a transfer of half the bytes
   FAULT_ALWAYS  1 if all calls after it fail too
   FAULT_COUNT   file that gets the number of calls when the program ends
   FAULT_CALLER  file that gets the name of the library whose allocation failed first

   Standard streams are left alone, so that a report can be read. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
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
#define MOVE(name, types, ...)                          \
  if (fd > 2 && Fails(":" #name ":")) {                 \
    if (sError) return -1;                              \
    n = n > 1 ? n / 2 : n;                              \
  }                                                     \
  return REAL(ssize_t, #name, types)(__VA_ARGS__);

ssize_t read(int fd, void* to, size_t n) { MOVE(read, (int, void*, size_t), fd, to, n) }
ssize_t write(int fd, const void* from, size_t n) {
  MOVE(write, (int, const void*, size_t), fd, from, n)
}
ssize_t pread(int fd, void* to, size_t n, off_t at) {
  MOVE(pread, (int, void*, size_t, off_t), fd, to, n, at)
}
ssize_t pwrite(int fd, const void* from, size_t n, off_t at) {
  MOVE(pwrite, (int, const void*, size_t, off_t), fd, from, n, at)
}
int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return Fails(":open:") ? -1 : REAL(int, "open", (const char*, int, ...))(path, flags, mode);
}
int ftruncate(int fd, off_t n) {
  return Fails(":ftruncate:") ? -1 : REAL(int, "ftruncate", (int, off_t))(fd, n);
}
int fsync(int fd) { return Fails(":fsync:") ? -1 : REAL(int, "fsync", (int))(fd); }
int close(int fd) { /* the descriptor is gone either way, as after the system's own failures */
  const int result = REAL(int, "close", (int))(fd);
  return fd > 2 && Fails(":close:") ? -1 : result;
}

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
    const int file = REAL(int, "open", (const char*, int, ...))(path, O_WRONLY | O_CREAT, 0600);
    if (REAL(ssize_t, "write", (int, const void*, size_t))(file, info.dli_fname,
                                                           strlen(info.dli_fname)) < 0) {
      abort();
    }
    REAL(int, "close", (int))(file);
  }
  errno = sError;
  return 1;
}

#define CALLER __builtin_extract_return_addr(__builtin_return_address(0))

void* malloc(size_t n) { return AllocationFails(CALLER) ? NULL : __libc_malloc(n); }
void* calloc(size_t k, size_t n) { return AllocationFails(CALLER) ? NULL : __libc_calloc(k, n); }
void* realloc(void* p, size_t n) { return AllocationFails(CALLER) ? NULL : __libc_realloc(p, n); }
