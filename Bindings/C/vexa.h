/* Writes HDF5 files of tables, series of coefficients and of tensors, texts and version records, which
 * Kelmor joins, from programs in C and in whatever calls C.
 *
 * Results. Every function returns VEXA_OK, which is 0, or says by another status that it failed;
 * vexa_last_error() has the report. What it gives is written through the last pointer. No function
 * ends the process, and no exception of C++ leaves one, with one exception that is HDF5's own: it
 * may call exit() where it finds no memory. A refused call changes nothing. Where a write to a file
 * fails, as on a full disk, the report names the file and what could not be written first, or says
 * that the file stays as it was before; standard error has the other objects of the file that could
 * not be written. These have lost what waited in memory, and all other objects and files keep what
 * they hold. HDF5 prints its own messages there, unless it is told not to by H5Eset_auto2(). An
 * append that fails because it could not write what exceeds the cache limit has taken its rows
 * nevertheless, and is not to be repeated: they wait, or are among what is lost. VEXA_OK of an append
 * means that the row is held or written, of vexa_flush() that the rows are in the file for whoever
 * reads it afterwards.
 *
 * Memory and files. What is appended waits in memory until vexa_flush(), vexa_close() or the end of
 * the process (exit(), or the return of main) writes it, or until what waits in all files together
 * exceeds the cache limit, which the append that exceeds it puts right by writing. Between calls no
 * file is open. Where another program has a file open, or this one by calls of HDF5 of its own, the
 * rows wait until it is closed, and vexa_waiting() counts them. A file that cannot be written at the
 * end of the process is reported on standard error and given up; who needs a status calls
 * vexa_flush_all() before that. Room that many rows at once have filled, up to 128 MiB, is kept for
 * the next ones.
 *
 * Ownership. vexa_close() frees a file's handle and those of all objects that were opened through
 * it; nothing else is to be freed. Arrays and texts that are passed in are copied. A file may be
 * opened several times, and an object too: they are the same file and the same object then.
 *
 * Threads. The library belongs to one thread at a time. Threads may take turns that the program
 * orders; a call that comes while another thread is inside fails and touches nothing. Reports are
 * kept per thread. A call must not be left by longjmp() or by cancelling its thread. A process that
 * was forked must not use the library, and must end by _exit(), if its parent had something waiting.
 *
 * The process. Handlers of signals and the terminate handler of C++ are left as they are. HDF5 may be
 * used, by the same copy of the library, before, between and after calls, and even be closed by
 * H5close(). */
#ifndef VEXA_H
#define VEXA_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VEXA_API __attribute__((visibility("default")))
#else
#define VEXA_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum {
  VEXA_OK = 0,
  VEXA_FAILED = 1,   /* the report says what is wrong, with which object of which file */
  VEXA_NO_MEMORY = 2 /* there was no memory for what was to be appended, or for a report */
};

typedef struct vexa_file vexa_file;
typedef struct vexa_table vexa_table;
typedef struct vexa_coefs vexa_coefs;
typedef struct vexa_tensors vexa_tensors;
typedef struct vexa_text vexa_text;

/* An entry of a version record: a change of the format in which a program writes. */
typedef struct vexa_version {
  const char* hash; /* the program's commit before the change */
  const char* help; /* what changed */
} vexa_version;

/* The report of this thread's last call that failed; "" if none did. It is lent until this thread's
 * next call that fails. */
VEXA_API const char* vexa_last_error(void);

/* The version of the library, such as "0.1.0". */
VEXA_API const char* vexa_library_version(void);

/* Installs the handlers that programs of C++ have: fatal signals print a backtrace, SIGUSR2 has all
 * that waits written at the next append, and an exception of C++ that nobody catches has it written
 * before it ends the process. */
VEXA_API int vexa_install_handlers(void);

/* Files. vexa_open() makes the file if it is missing, in a folder that exists; a new file gets the
 * history, if that has entries, as its record "VersionHist.ver". */
VEXA_API int vexa_open(const char* path, const vexa_version* history, size_t entries,
                       vexa_file** file);
/* Writes what waits; VEXA_OK, too, if another program has the file open, so that it goes on waiting. */
VEXA_API int vexa_flush(vexa_file* file);
/* Does so for all files. */
VEXA_API int vexa_flush_all(void);
/* Does what vexa_flush() does, and frees the handle, whatever becomes of the write. A call that is
 * refused, since another thread is inside or the process is ending, frees nothing. Null is fine. */
VEXA_API int vexa_close(vexa_file* file);
/* The bytes that wait in the file, or in all files if it is null. */
VEXA_API int vexa_waiting(const vexa_file* file, uint64_t* bytes);

/* The cache limit in bytes, for all files together; 20000000 at first. */
VEXA_API int vexa_set_cache_limit(uint64_t bytes);
VEXA_API int vexa_get_cache_limit(uint64_t* bytes);
/* How many seconds a file is waited for that another program has open and that has to be written: at
 * the end of the process, when its objects are opened, or when more than twice the limit waits; 20
 * at first. */
VEXA_API int vexa_set_lock_patience(double seconds);

/* Objects. A name is a path in the file, such as "/Run.dir/energy.dat", whose groups end in .dir and
 * are made, and whose end is that of the kind. An object that exists is gone on with. `compress` (0
 * or 1) and the lengths of chunks, in rows, are for objects that do not exist yet. A chunk is held in
 * memory and encoded whole, however few rows it has: about as many as are flushed at once is a good
 * length. One of 4 GiB or more (536870912 rows), which HDF5 refuses, is refused.
 *
 * A table (.dat) has a name per column, the first of them that of the time. Without a legend
 * (columns 0), the table must exist; with one, a table that exists must have the same. */
VEXA_API int vexa_table_open(vexa_file* file, const char* name, const char* const* legend,
                             size_t columns, int compress, size_t chunk_rows, vexa_table** table);
VEXA_API int vexa_table_append(vexa_table* table, const double* row, size_t columns);
/* Appends many rows: rows[r * columns + c]. If they exceed the cache limit, they are written piece by
 * piece, and a failure keeps the pieces before it. */
VEXA_API int vexa_table_append_rows(vexa_table* table, const double* rows, size_t count,
                                    size_t columns);
/* Tell how many there are, with those that wait. */
VEXA_API int vexa_table_size(const vexa_table* table, uint64_t* rows, uint64_t* columns);

/* A series of coefficients (.coef) has a time and any number of values in each step. The names of
 * the time and of the values are for a series that does not exist yet. */
VEXA_API int vexa_coefs_open(vexa_file* file, const char* name, const char* time_name,
                             const char* values_name, int compress, size_t index_chunk_rows,
                             size_t values_chunk_rows, vexa_coefs** coefs);
VEXA_API int vexa_coefs_append(vexa_coefs* coefs, double time, const double* values, size_t count);
/* Appends many steps: counts[i] values at times[i], those of all steps one after the other. Where a
 * write fails or memory ends in between, the steps before are kept. */
VEXA_API int vexa_coefs_append_steps(vexa_coefs* coefs, size_t steps, const double* times,
                                     const size_t* counts, const double* values);
VEXA_API int vexa_coefs_size(const vexa_coefs* coefs, uint64_t* steps);

/* A series of tensors (.tdm) whose components are values on a mesh. Each index of a tensor is within
 * 0 ... dim-1, and `symmetry` has a character per index: indices with the same one may be exchanged
 * ("11" is a symmetric matrix, "12" any matrix, "" a scalar). A series that exists must have the
 * same dim, symmetry and mesh_dim. */
VEXA_API int vexa_tensors_open(vexa_file* file, const char* name, const char* time_name,
                               const char* values_name, int dim, const char* symmetry,
                               int mesh_dim, int compress, size_t index_chunk_rows,
                               size_t values_chunk_rows, vexa_tensors** tensors);
/* The number of independent components, and which of them a list of indices names. Components are in
 * the order of their lists, the first index varying fastest, and symmetric ones are left out: (0,0)
 * (1,0) (2,0) (1,1) (2,1) (2,2). */
VEXA_API int vexa_tensors_components(const vexa_tensors* tensors, size_t* components);
VEXA_API int vexa_tensors_component(const vexa_tensors* tensors, const int* indices,
                                    size_t* component);
/* Appends a step on a mesh of these extents, one for each of its dimensions; they may differ from step
 * to step. The values of component after component, each with the points of the mesh, whose first
 * index varies fastest: values[c * points + i0 + extents[0] * (i1 + extents[1] * i2)]. */
VEXA_API int vexa_tensors_append(vexa_tensors* tensors, double time, const int* extents,
                                 const double* values);
/* Appends many steps on the same mesh, their values one after the other, as vexa_coefs_append_steps()
 * does. */
VEXA_API int vexa_tensors_append_steps(vexa_tensors* tensors, size_t steps, const double* times,
                                       const int* extents, const double* values);
VEXA_API int vexa_tensors_size(const vexa_tensors* tensors, uint64_t* steps);

/* A text (.txt). What is appended between two writes becomes one further string of it; it must not
 * hold a null character. */
VEXA_API int vexa_text_open(vexa_file* file, const char* name, vexa_text** text);
VEXA_API int vexa_text_append(vexa_text* text, const char* characters, size_t length);
VEXA_API int vexa_text_size(const vexa_text* text, uint64_t* strings);

/* Makes a version record (.ver), of at least one entry, besides that of vexa_open(). A record is
 * written once: fails if it exists. */
VEXA_API int vexa_version_create(vexa_file* file, const char* name, const vexa_version* history,
                                 size_t entries);
/* The number of its entries. */
VEXA_API int vexa_version_size(vexa_file* file, const char* name, uint64_t* entries);

#ifdef __cplusplus
}
#endif

#endif
