/* A program in C that uses the library as programs in C may: one process per case, in a folder of its
 * own. What is in the files is looked at by plain HDF5, after the process that wrote has ended. */
#define _DEFAULT_SOURCE
#include <fcntl.h>
#include <hdf5.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexa.h>

int HasDefaultTerminateHandler(void);

#define CHECK(condition)                                                                       \
  do {                                                                                         \
    if (!(condition)) {                                                                        \
      fprintf(stderr, "%s:%d: %s; last report: %s\n", __FILE__, __LINE__, #condition,          \
              vexa_last_error());                                                              \
      _exit(1);                                                                                \
    }                                                                                          \
  } while (0)

/* The call fails, and the report says these two things. */
#define CHECK_FAILS(call, first, second)                                                       \
  do {                                                                                         \
    CHECK((call) == VEXA_FAILED);                                                              \
    CHECK(strstr(vexa_last_error(), first) != NULL && strstr(vexa_last_error(), second) != NULL); \
  } while (0)

static const char* const legend[] = {"t", "x"};

/* Tests leave files open, as programs do; here no sanitizer takes them for lost. */
static vexa_file* opened[16];
static int opened_count;

static vexa_table* open_table(const char* filename, vexa_file** file) {
  vexa_table* table;
  CHECK(vexa_open(filename, NULL, 0, file) == VEXA_OK);
  opened[opened_count++ % 16] = *file;
  CHECK(vexa_table_open(*file, "/Run.dir/x.dat", legend, 2, 1, 16, &table) == VEXA_OK);
  return table;
}

static void append(vexa_table* table, int count) {
  while (count-- > 0) {
    const double row[] = {1, 2};
    CHECK(vexa_table_append(table, row, 2) == VEXA_OK);
  }
}

static long rows_in_file(const char* filename, const char* name) {
  hsize_t dims[2] = {0, 0};
  const hid_t file_id = H5Fopen(filename, H5F_ACC_RDONLY, H5P_DEFAULT);
  const hid_t set_id = file_id < 0 ? -1 : H5Dopen2(file_id, name, H5P_DEFAULT);
  CHECK(set_id >= 0 && H5Sget_simple_extent_dims(H5Dget_space(set_id), dims, NULL) >= 1);
  CHECK(H5close() >= 0);
  return (long)dims[0];
}

/* A file of the program's own, which it leaves open. */
static void leave_open(const char* filename) {
  const hid_t file_id = H5Fcreate(filename, H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  CHECK(H5Gclose(H5Gcreate2(file_id, "g", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)) >= 0);
}

static void check_left_open(const char* filename) {
  const hid_t file_id = H5Fopen(filename, H5F_ACC_RDONLY, H5P_DEFAULT);
  CHECK(file_id >= 0 && H5Lexists(file_id, "g", H5P_DEFAULT) > 0);
  CHECK(H5close() >= 0);
}

static void on_signal(int number) {
  (void)number;
}

typedef void (*handler)(int);

static handler handler_of(int number) {
  struct sigaction action;
  sigaction(number, NULL, &action);
  return action.sa_handler;
}

static void test_handlers(void) {
  const int signals[] = {SIGSEGV, SIGFPE, SIGABRT, SIGQUIT, SIGUSR2, SIGTERM, SIGTRAP};
  handler before[sizeof signals / sizeof *signals]; /* a sanitizer has some of its own */
  vexa_file* file = NULL;
  size_t i;
  signal(SIGINT, on_signal);
  for (i = 0; i < sizeof signals / sizeof *signals; ++i) {
    before[i] = handler_of(signals[i]);
  }
  CHECK(HasDefaultTerminateHandler());
  CHECK_FAILS(vexa_open("none/a.h5", NULL, 0, &file), "none/a.h5", "nonexistent directory");
  for (i = 0; i < sizeof signals / sizeof *signals; ++i) {
    CHECK(handler_of(signals[i]) == before[i]);
  }
  CHECK(HasDefaultTerminateHandler());
  CHECK(vexa_install_handlers() == VEXA_OK);
  CHECK(handler_of(SIGSEGV) != before[0] && handler_of(SIGUSR2) != SIG_DFL);
  CHECK(!HasDefaultTerminateHandler() && handler_of(SIGINT) == on_signal);

  append(open_table("a.h5", &file), 3);
  raise(SIGUSR2);
  append(open_table("b.h5", &file), 1); /* serves the signal */
  _exit(0);
}

static void verify_handlers(void) {
  CHECK(rows_in_file("a.h5", "/Run.dir/x.dat") == 3);
}

static void test_life_of_hdf5(void) {
  vexa_file* file;
  vexa_table* table;
  leave_open("before.h5");
  table = open_table("a.h5", &file);
  append(table, 2);
  CHECK(vexa_flush(file) == VEXA_OK);
  append(table, 3);
  CHECK(H5close() >= 0);
  leave_open("between.h5"); /* under identifiers that others had */
  append(table, 4);
  CHECK(vexa_flush(file) == VEXA_OK);
  append(table, 5);
  /* The program's own hold on the file must not cost the rows. */
  CHECK(H5Dopen2(H5Fopen("a.h5", H5F_ACC_RDWR, H5P_DEFAULT), "/Run.dir/x.dat", H5P_DEFAULT) >= 0);
  exit(0);
}

static void verify_life_of_hdf5(void) {
  CHECK(rows_in_file("a.h5", "/Run.dir/x.dat") == 14);
  check_left_open("before.h5");
  check_left_open("between.h5");
}

static void test_limit(void) {
  vexa_file* files[3];
  vexa_table* tables[3];
  double rows[2000];
  uint64_t bytes;
  int i;
  memset(rows, 0, sizeof rows);
  CHECK(vexa_set_cache_limit(2000) == VEXA_OK);
  tables[0] = open_table("a.h5", &files[0]);
  tables[1] = open_table("b.h5", &files[1]);
  tables[2] = open_table("c.h5", &files[2]);
  for (i = 0; i < 900; ++i) {
    append(tables[i % 3], 1);
    CHECK(vexa_waiting(NULL, &bytes) == VEXA_OK && bytes <= 2000);
  }
  CHECK(vexa_table_append_rows(tables[0], rows, 1000, 2) == VEXA_OK);
  CHECK(vexa_waiting(NULL, &bytes) == VEXA_OK && bytes <= 2000);
  CHECK(vexa_set_cache_limit(0) == VEXA_OK);
  append(tables[0], 1);
  CHECK(vexa_waiting(NULL, &bytes) == VEXA_OK && bytes == 0);
  _exit(0);
}

static void verify_limit(void) {
  CHECK(rows_in_file("a.h5", "/Run.dir/x.dat") == 1301);
  CHECK(rows_in_file("c.h5", "/Run.dir/x.dat") == 300);
}

static void refuse(vexa_file* file, vexa_table* table) {
  const double row[] = {1, 2, 3};
  const int extents[] = {2, -1}, huge[] = {1 << 30, 1 << 28};
  const size_t counts[] = {1, 3};
  vexa_coefs* coefs;
  uint64_t steps;
  const char* const other[] = {"t", "y"};
  vexa_table* no_table;
  vexa_tensors* tensors;
  vexa_text* text;
  CHECK_FAILS(vexa_table_append(table, row, 3), "x.dat", "a.h5");
  CHECK_FAILS(vexa_table_append(table, NULL, 2), "null pointer", "a.h5");
  CHECK_FAILS(vexa_table_append_rows(table, row, SIZE_MAX / 8, 2), "exceed", "x.dat");
  CHECK_FAILS(vexa_table_append(NULL, row, 3), "null pointer", "object");
  CHECK_FAILS(vexa_table_open(file, "/Run.dir/x.dat", other, 2, 1, 16, &no_table), "x.dat", "(t,y)");
  CHECK(no_table == NULL);
  CHECK_FAILS(vexa_table_open(file, "/new.dat", NULL, 0, 1, 16, &no_table), "new.dat", "legend");
  CHECK_FAILS(vexa_table_open(file, "/x.txt", legend, 2, 1, 16, &no_table), "x.txt", "'.dat'");
  CHECK_FAILS(vexa_table_open(file, "/a.dir/./x.dat", legend, 2, 1, 16, &no_table), "'.'", "a.h5");
  CHECK_FAILS(vexa_version_create(file, "/v.ver", NULL, 0), "needs an entry", "");
  CHECK(vexa_tensors_open(file, "/m.tdm", "t", "m", 3, "11", 2, 1, 16, 16, &tensors) == VEXA_OK);
  CHECK_FAILS(vexa_tensors_append(tensors, 0, extents, row), "negative", "m.tdm");
  CHECK_FAILS(vexa_tensors_append(tensors, 0, huge, row), "exceeds", "m.tdm");
  CHECK(vexa_coefs_open(file, "/c.coef", "t", "c", 1, 16, 16, &coefs) == VEXA_OK);
  CHECK(vexa_coefs_append(coefs, 0, row, 3) == VEXA_OK);
  CHECK_FAILS(vexa_coefs_append(coefs, 0, row, SIZE_MAX), "exceed", "c.coef");
  CHECK_FAILS(vexa_coefs_append_steps(coefs, 2, row, counts, NULL), "null pointer", "c.coef");
  CHECK(vexa_coefs_size(coefs, &steps) == VEXA_OK && steps == 1);
  CHECK_FAILS(vexa_tensors_open(file, "/m.tdm", "t", "m", 3, "12", 2, 1, 16, 16, &tensors),
              "m.tdm", "'12'");
  CHECK(vexa_text_open(file, "/log.txt", &text) == VEXA_OK);
  CHECK_FAILS(vexa_text_append(text, "a\0b", 3), "null character", "log.txt");
}

/* What fails on a full disk takes nothing else along. */
static void test_failures(void) {
  struct rlimit limit = {20000, RLIM_INFINITY};
  static double many[8000];
  vexa_file *file, *full, *copy;
  vexa_table* table = open_table("a.h5", &file);
  size_t i;
  append(table, 2);
  refuse(file, table);
  CHECK(system("echo text > bad.h5") == 0);
  CHECK_FAILS(vexa_open("bad.h5", NULL, 0, &copy), "bad.h5", "");
  CHECK(copy == NULL);

  signal(SIGXFSZ, SIG_IGN);
  for (i = 0; i < 8000; ++i) {
    many[i] = rand();
  }
  CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
  CHECK(vexa_table_append_rows(open_table("full.h5", &full), many, 4000, 2) == VEXA_OK);
  CHECK_FAILS(vexa_flush(full), "full.h5", "is lost");
  CHECK(vexa_table_append_rows(open_table("full.h5", &full), many, 4000, 2) == VEXA_OK);
  leave_open("own.h5");
  append(table, 1);
  append(open_table("locked.h5", &copy), 1);
  CHECK(vexa_flush(copy) == VEXA_OK);
  append(open_table("locked.h5", &copy), 1);
  CHECK(flock(open("locked.h5", O_RDONLY), LOCK_EX) == 0);
  CHECK(vexa_set_lock_patience(0.1) == VEXA_OK);
  exit(0); /* while these two cannot be written still */
}

static void verify_failures(void) {
  CHECK(rows_in_file("a.h5", "/Run.dir/x.dat") == 3);
  CHECK(rows_in_file("locked.h5", "/Run.dir/x.dat") == 1);
  check_left_open("own.h5");
}

/* Many at once are the same as one after the other. */
static void write_steps(const char* filename, int at_once) {
  const double times[] = {0, 1, 2};
  const size_t counts[] = {2, 0, 3};
  const int extents[] = {2, 1};
  double values[36];
  size_t i;
  vexa_file* file;
  vexa_table* table = open_table(filename, &file);
  vexa_coefs* coefs;
  vexa_tensors* tensors;
  for (i = 0; i < 36; ++i) {
    values[i] = (double)i;
  }
  CHECK(vexa_coefs_open(file, "/c.coef", "t", "c", 1, 16, 16, &coefs) == VEXA_OK);
  CHECK(vexa_tensors_open(file, "/m.tdm", "t", "m", 3, "11", 2, 1, 16, 16, &tensors) == VEXA_OK);
  if (at_once) {
    CHECK(vexa_table_append_rows(table, values, 3, 2) == VEXA_OK);
    CHECK(vexa_coefs_append_steps(coefs, 3, times, counts, values) == VEXA_OK);
    CHECK(vexa_tensors_append_steps(tensors, 3, times, extents, values) == VEXA_OK);
  } else {
    const double* next = values;
    for (i = 0; i < 3; next += counts[i++]) {
      CHECK(vexa_table_append(table, values + 2 * i, 2) == VEXA_OK);
      CHECK(vexa_coefs_append(coefs, times[i], next, counts[i]) == VEXA_OK);
      CHECK(vexa_tensors_append(tensors, times[i], extents, values + 12 * i) == VEXA_OK);
    }
  }
  CHECK(vexa_close(file) == VEXA_OK);
}

static void test_many(void) {
  const vexa_version history[] = {{"a", "one"}, {"b", "two"}};
  const int indices[] = {1, 2};
  vexa_file* file;
  vexa_coefs* coefs;
  vexa_tensors* tensors;
  uint64_t count;
  size_t component;
  write_steps("single.h5", 0);
  write_steps("many.h5", 1);
  CHECK(system("cmp single.h5 many.h5") == 0);
  CHECK(vexa_open("many.h5", NULL, 0, &file) == VEXA_OK);
  CHECK(vexa_coefs_open(file, "/c.coef", "t", "c", 1, 16, 16, &coefs) == VEXA_OK);
  CHECK(vexa_coefs_size(coefs, &count) == VEXA_OK && count == 3);
  CHECK(vexa_tensors_open(file, "/m.tdm", "t", "m", 3, "11", 2, 1, 16, 16, &tensors) == VEXA_OK);
  CHECK(vexa_tensors_component(tensors, indices, &component) == VEXA_OK && component == 4);
  CHECK(vexa_version_create(file, "/v.ver", history, 2) == VEXA_OK);
  CHECK_FAILS(vexa_version_create(file, "/v.ver", history, 2), "v.ver", "many.h5");
  CHECK(vexa_flush(file) == VEXA_OK);
  CHECK(vexa_version_size(file, "/v.ver", &count) == VEXA_OK && count == 2);
  CHECK(vexa_close(file) == VEXA_OK);
  exit(0);
}

static void verify_many(void) {
  CHECK(rows_in_file("many.h5", "/m.tdm/data.dat") == 36);
  CHECK(rows_in_file("many.h5", "/c.coef/index.dat") == 3);
  CHECK(rows_in_file("many.h5", "/v.ver") == 2);
}

/* Calls of two threads at once do not come between each other's parts. */
static vexa_file* shared;
static volatile int has_ended;
static uint64_t appended[2];
static const char* const appended_to[] = {"/a.dat", "/b.dat"};

static void* append_in_thread(void* counted) {
  static const double rows[20000];
  const int is_first = counted == appended;
  const char* const name = appended_to[is_first];
  const size_t count = is_first ? 10000 : 1; /* the second comes while the first is inside */
  vexa_table* table;
  while (!has_ended) {
    if (vexa_table_open(shared, name, legend, 2, 1, 16, &table) == VEXA_OK &&
        vexa_table_append_rows(table, rows, count, 2) == VEXA_OK) {
      *(uint64_t*)counted += count;
    }
  }
  return NULL;
}

static void test_threads(void) {
  uint64_t rows, columns;
  pthread_t threads[2];
  vexa_table* table;
  int i;
  CHECK(vexa_set_cache_limit(2000) == VEXA_OK);
  CHECK(vexa_open("a.h5", NULL, 0, &shared) == VEXA_OK);
  for (i = 0; i < 2; ++i) {
    CHECK(pthread_create(&threads[i], NULL, append_in_thread, &appended[i]) == 0);
  }
  usleep(300000);
  has_ended = 1;
  CHECK(pthread_join(threads[0], NULL) == 0 && pthread_join(threads[1], NULL) == 0);
  for (i = 0; i < 2; ++i) {
    CHECK(vexa_table_open(shared, appended_to[!i], legend, 2, 1, 16, &table) == VEXA_OK);
    CHECK(vexa_table_size(table, &rows, &columns) == VEXA_OK && rows == appended[i]);
  }
  exit(0);
}

static void verify_threads(void) {
  CHECK(rows_in_file("a.h5", "/b.dat") % 10000 == 0);
}

int main(int argc, char** argv) {
  static const struct {
    const char* name;
    void (*run)(void);
    void (*verify)(void);
  } cases[] = {{"handlers", test_handlers, verify_handlers},
               {"life_of_hdf5", test_life_of_hdf5, verify_life_of_hdf5},
               {"limit", test_limit, verify_limit},
               {"failures", test_failures, verify_failures},
               {"many", test_many, verify_many},
               {"threads", test_threads, verify_threads}};
  char folder[] = "/tmp/vexa_test_XXXXXX";
  char command[64];
  size_t i;
  for (i = 0; i < sizeof cases / sizeof *cases; ++i) {
    if (argc == 2 && strcmp(argv[1], cases[i].name) == 0) {
      int status = 0;
      CHECK(mkdtemp(folder) != NULL && chdir(folder) == 0);
      if (fork() == 0) {
        cases[i].run();
      }
      CHECK(wait(&status) > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0);
      cases[i].verify();
      sprintf(command, "rm -r %s", folder);
      return system(command);
    }
  }
  return 2;
}
