! Writes HDF5 files of tables, series of coefficients and of tensors, texts and version records, which
! Kelmor joins, from programs in Fortran 2008. vexa.h, the header of the library for C, says when
! things are written, what threads may do, and what becomes of a process's handlers; what is said
! there holds here.
!
! Results. Every subroutine has an optional last argument stat, which is vexa_ok (0) or says that the
! call failed; vexa_last_error() has the report. Without stat, as in functions, a failure prints the
! report and ends the program by error stop, which writes what waits.
!
! Arrays are real(c_double), which is double precision, and are handed on as they lie in memory: none
! is copied on the way to the library if it is contiguous. The index that varies fastest comes first:
!   rows(column, row) of a table,
!   values(i, j, k, component) of a tensor on a mesh of three dimensions.
! Indices and components count from 1 here, and from 0 in C and in what a file says. Trailing blanks
! of names are left out, those of texts kept.
!
! What was opened in a file is of no use any more once the file is closed.
module vexa
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_f_pointer, c_int, c_int64_t, c_loc, &
    c_null_char, c_null_ptr, c_ptr, c_size_t
  implicit none
  private

  integer, parameter, public :: vexa_ok = 0
  integer, parameter, public :: vexa_failed = 1
  integer, parameter, public :: vexa_no_memory = 2

  public :: vexa_last_error, vexa_install_handlers, vexa_flush_all
  public :: vexa_set_cache_limit, vexa_get_cache_limit, vexa_set_lock_patience

  ! A file is made if it is missing; a new one gets the history, entry i of which is hashes(i) and
  ! helps(i).
  type, public :: vexa_file
    private
    type(c_ptr) :: handle = c_null_ptr
  contains
    procedure :: open => file_open
    procedure :: flush => file_flush
    procedure :: close => file_close
    procedure :: waiting => file_waiting
    procedure :: create_version => file_create_version
    procedure :: version => file_version
  end type

  ! A table: append(row) adds one row, append(rows) as many as the second index counts.
  type, public :: vexa_table
    private
    type(c_ptr) :: handle = c_null_ptr
  contains
    procedure :: open => table_open
    generic :: append => append_row, append_rows
    procedure :: rows => table_rows
    procedure, private :: append_row => table_append_row
    procedure, private :: append_rows => table_append_rows
  end type

  ! A series of coefficients: append(time, values) adds one step, append(times, counts, values) many,
  ! of which step i has counts(i) values.
  type, public :: vexa_coefs
    private
    type(c_ptr) :: handle = c_null_ptr
  contains
    procedure :: open => coefs_open
    generic :: append => append_step, append_steps
    procedure :: steps => coefs_steps
    procedure, private :: append_step => coefs_append_step
    procedure, private :: append_steps => coefs_append_steps
  end type

  ! A series of tensors: append(time, values) adds a step on a mesh of up to three dimensions; the
  ! last index of values is the component, the others are those of the mesh. append_steps() adds
  ! steps on one mesh of any dimension, and takes the lengths of values on trust.
  type, public :: vexa_tensors
    private
    type(c_ptr) :: handle = c_null_ptr
    integer :: mesh_dim = 0
    integer :: rank = 0
  contains
    procedure :: open => tensors_open
    generic :: append => append_0d, append_1d, append_2d, append_3d
    procedure :: append_steps => tensors_append_steps
    procedure :: components => tensors_components
    procedure :: component => tensors_component
    procedure :: steps => tensors_steps
    procedure, private :: append_0d => tensors_append_0d
    procedure, private :: append_1d => tensors_append_1d
    procedure, private :: append_2d => tensors_append_2d
    procedure, private :: append_3d => tensors_append_3d
  end type

  type, public :: vexa_text
    private
    type(c_ptr) :: handle = c_null_ptr
  contains
    procedure :: open => text_open
    procedure :: append => text_append
    procedure :: strings => text_strings
  end type

  type, bind(c) :: c_version
    type(c_ptr) :: hash, help
  end type

  ! What this module itself refuses; empty if the library has the report.
  character(:), allocatable :: own_report

  interface
    type(c_ptr) function c_last_error() bind(c, name='vexa_last_error')
      import
    end function
    integer(c_size_t) function c_strlen(text) bind(c, name='strlen')
      import
      type(c_ptr), value :: text
    end function
    integer(c_size_t) function c_write(descriptor, text, length) bind(c, name='write')
      import
      integer(c_int), value :: descriptor
      character(kind=c_char), intent(in) :: text(*)
      integer(c_size_t), value :: length
    end function
    integer(c_int) function c_install_handlers() bind(c, name='vexa_install_handlers')
      import
    end function
    integer(c_int) function c_open(path, history, entries, file) bind(c, name='vexa_open')
      import
      character(kind=c_char), intent(in) :: path(*)
      type(c_version), intent(in) :: history(*)
      integer(c_size_t), value :: entries
      type(c_ptr), intent(out) :: file
    end function
    integer(c_int) function c_flush(file) bind(c, name='vexa_flush')
      import
      type(c_ptr), value :: file
    end function
    integer(c_int) function c_flush_all() bind(c, name='vexa_flush_all')
      import
    end function
    integer(c_int) function c_close(file) bind(c, name='vexa_close')
      import
      type(c_ptr), value :: file
    end function
    integer(c_int) function c_waiting(file, bytes) bind(c, name='vexa_waiting')
      import
      type(c_ptr), value :: file
      integer(c_int64_t), intent(out) :: bytes
    end function
    integer(c_int) function c_set_cache_limit(bytes) bind(c, name='vexa_set_cache_limit')
      import
      integer(c_int64_t), value :: bytes
    end function
    integer(c_int) function c_get_cache_limit(bytes) bind(c, name='vexa_get_cache_limit')
      import
      integer(c_int64_t), intent(out) :: bytes
    end function
    integer(c_int) function c_set_lock_patience(seconds) bind(c, name='vexa_set_lock_patience')
      import
      real(c_double), value :: seconds
    end function
    integer(c_int) function c_table_open(file, name, legend, columns, compress, chunk_rows, table) &
        bind(c, name='vexa_table_open')
      import
      type(c_ptr), value :: file
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: legend(*)
      integer(c_size_t), value :: columns, chunk_rows
      integer(c_int), value :: compress
      type(c_ptr), intent(out) :: table
    end function
    integer(c_int) function c_table_append(table, row, columns) bind(c, name='vexa_table_append')
      import
      type(c_ptr), value :: table
      real(c_double), intent(in) :: row(*)
      integer(c_size_t), value :: columns
    end function
    integer(c_int) function c_table_append_rows(table, rows, count, columns) &
        bind(c, name='vexa_table_append_rows')
      import
      type(c_ptr), value :: table
      real(c_double), intent(in) :: rows(*)
      integer(c_size_t), value :: count, columns
    end function
    integer(c_int) function c_table_size(table, rows, columns) bind(c, name='vexa_table_size')
      import
      type(c_ptr), value :: table
      integer(c_int64_t), intent(out) :: rows, columns
    end function
    integer(c_int) function c_coefs_open(file, name, time_name, values_name, compress, index_rows, &
        values_rows, coefs) bind(c, name='vexa_coefs_open')
      import
      type(c_ptr), value :: file
      character(kind=c_char), intent(in) :: name(*), time_name(*), values_name(*)
      integer(c_int), value :: compress
      integer(c_size_t), value :: index_rows, values_rows
      type(c_ptr), intent(out) :: coefs
    end function
    integer(c_int) function c_coefs_append(coefs, time, values, count) &
        bind(c, name='vexa_coefs_append')
      import
      type(c_ptr), value :: coefs
      real(c_double), value :: time
      real(c_double), intent(in) :: values(*)
      integer(c_size_t), value :: count
    end function
    integer(c_int) function c_coefs_append_steps(coefs, steps, times, counts, values) &
        bind(c, name='vexa_coefs_append_steps')
      import
      type(c_ptr), value :: coefs
      integer(c_size_t), value :: steps
      real(c_double), intent(in) :: times(*), values(*)
      integer(c_size_t), intent(in) :: counts(*)
    end function
    integer(c_int) function c_coefs_size(coefs, steps) bind(c, name='vexa_coefs_size')
      import
      type(c_ptr), value :: coefs
      integer(c_int64_t), intent(out) :: steps
    end function
    integer(c_int) function c_tensors_open(file, name, time_name, values_name, dim, symmetry, &
        mesh_dim, compress, index_rows, values_rows, tensors) bind(c, name='vexa_tensors_open')
      import
      type(c_ptr), value :: file
      character(kind=c_char), intent(in) :: name(*), time_name(*), values_name(*), symmetry(*)
      integer(c_int), value :: dim, mesh_dim, compress
      integer(c_size_t), value :: index_rows, values_rows
      type(c_ptr), intent(out) :: tensors
    end function
    integer(c_int) function c_tensors_components(tensors, components) &
        bind(c, name='vexa_tensors_components')
      import
      type(c_ptr), value :: tensors
      integer(c_size_t), intent(out) :: components
    end function
    integer(c_int) function c_tensors_component(tensors, indices, component) &
        bind(c, name='vexa_tensors_component')
      import
      type(c_ptr), value :: tensors
      integer(c_int), intent(in) :: indices(*)
      integer(c_size_t), intent(out) :: component
    end function
    integer(c_int) function c_tensors_append_steps(tensors, steps, times, extents, values) &
        bind(c, name='vexa_tensors_append_steps')
      import
      type(c_ptr), value :: tensors
      integer(c_size_t), value :: steps
      real(c_double), intent(in) :: times(*), values(*)
      integer(c_int), intent(in) :: extents(*)
    end function
    integer(c_int) function c_tensors_size(tensors, steps) bind(c, name='vexa_tensors_size')
      import
      type(c_ptr), value :: tensors
      integer(c_int64_t), intent(out) :: steps
    end function
    integer(c_int) function c_text_open(file, name, text) bind(c, name='vexa_text_open')
      import
      type(c_ptr), value :: file
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(out) :: text
    end function
    integer(c_int) function c_text_append(text, characters, length) bind(c, name='vexa_text_append')
      import
      type(c_ptr), value :: text
      character(kind=c_char), intent(in) :: characters(*)
      integer(c_size_t), value :: length
    end function
    integer(c_int) function c_text_size(text, strings) bind(c, name='vexa_text_size')
      import
      type(c_ptr), value :: text
      integer(c_int64_t), intent(out) :: strings
    end function
    integer(c_int) function c_version_create(file, name, history, entries) &
        bind(c, name='vexa_version_create')
      import
      type(c_ptr), value :: file
      character(kind=c_char), intent(in) :: name(*)
      type(c_version), intent(in) :: history(*)
      integer(c_size_t), value :: entries
    end function
    integer(c_int) function c_version_size(file, name, entries) bind(c, name='vexa_version_size')
      import
      type(c_ptr), value :: file
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(out) :: entries
    end function
  end interface

contains

  ! The report of the last call that failed.
  function vexa_last_error() result(report)
    character(:), allocatable :: report
    type(c_ptr) :: text
    character(kind=c_char), pointer :: characters(:)
    if (allocated(own_report)) then
      report = own_report
      return
    end if
    text = c_last_error()
    call c_f_pointer(text, characters, [c_strlen(text)])
    report = together(characters)
  end function

  ! This and what writes a report do without statements at which the compiler notes, for messages of its
  ! own, where this file was compiled: allocate, deallocate and write.
  pure function together(characters) result(text)
    character(kind=c_char), intent(in) :: characters(:)
    character(size(characters)) :: text
    integer :: i
    do i = 1, size(characters)
      text(i:i) = characters(i)
    end do
  end function

  ! What every call of the library ends with.
  subroutine tell(status, stat)
    integer(c_int), intent(in) :: status
    integer, intent(out), optional :: stat
    character(:), allocatable :: dropped
    if (status /= vexa_ok) call move_alloc(own_report, dropped)
    call give(int(status), stat)
  end subroutine

  subroutine refuse(report, stat)
    character(*), intent(in) :: report
    integer, intent(out), optional :: stat
    own_report = report
    call give(vexa_failed, stat)
  end subroutine

  subroutine give(status, stat)
    integer, intent(in) :: status
    integer, intent(out), optional :: stat
    character(:), allocatable :: report
    integer(c_size_t) :: ignored
    if (present(stat)) then
      stat = status
    else if (status /= vexa_ok) then
      report = vexa_last_error()//new_line('a')
      ignored = c_write(2_c_int, report, len(report, c_size_t))
      error stop 1
    end if
  end subroutine

  function c_text(text) result(terminated)
    character(*), intent(in) :: text
    character(:), allocatable :: terminated
    terminated = trim(text)//c_null_char
  end function

  integer(c_int) function c_flag(flag)
    logical, intent(in), optional :: flag
    c_flag = 1
    if (present(flag)) c_flag = merge(1, 0, flag)
  end function

  integer(c_size_t) function c_rows(rows, default)
    integer, intent(in), optional :: rows
    integer, intent(in) :: default
    c_rows = default
    if (present(rows)) c_rows = max(rows, 1)
  end function

  ! Puts the end of a string in C behind each text, and points at them.
  subroutine point_at(texts, terminated, pointers)
    character(*), intent(in) :: texts(:)
    character(*), intent(out), target :: terminated(:)
    type(c_ptr), intent(out) :: pointers(:)
    integer :: i
    do i = 1, size(texts)
      terminated(i) = trim(texts(i))//c_null_char
      pointers(i) = c_loc(terminated(i))
    end do
  end subroutine

  subroutine vexa_install_handlers(stat)
    integer, intent(out), optional :: stat
    call tell(c_install_handlers(), stat)
  end subroutine

  subroutine vexa_flush_all(stat)
    integer, intent(out), optional :: stat
    call tell(c_flush_all(), stat)
  end subroutine

  subroutine vexa_set_cache_limit(bytes, stat)
    integer(c_int64_t), intent(in) :: bytes
    integer, intent(out), optional :: stat
    if (bytes < 0) then
      call refuse('The cache limit is negative', stat)
      return
    end if
    call tell(c_set_cache_limit(bytes), stat)
  end subroutine

  integer(c_int64_t) function vexa_get_cache_limit() result(bytes)
    call tell(c_get_cache_limit(bytes))
  end function

  subroutine vexa_set_lock_patience(seconds, stat)
    real(c_double), intent(in) :: seconds
    integer, intent(out), optional :: stat
    call tell(c_set_lock_patience(seconds), stat)
  end subroutine

  subroutine file_open(self, path, hashes, helps, stat)
    class(vexa_file), intent(inout) :: self
    character(*), intent(in) :: path
    character(*), intent(in), optional :: hashes(:), helps(:)
    integer, intent(out), optional :: stat
    type(c_version) :: none(0)
    if (present(hashes) .and. present(helps)) then
      call use_history(self, path, hashes, helps, .true., stat)
    else
      call tell(c_open(c_text(path), none, 0_c_size_t, self%handle), stat)
    end if
  end subroutine

  ! Opens a file with a history, or makes a record of that name in an open one.
  subroutine use_history(file, name, hashes, helps, opens, stat)
    class(vexa_file), intent(inout) :: file
    character(*), intent(in) :: name, hashes(:), helps(:)
    logical, intent(in) :: opens
    integer, intent(out), optional :: stat
    character(len(hashes) + 1), target :: hash_texts(size(hashes))
    character(len(helps) + 1), target :: help_texts(size(helps))
    type(c_ptr) :: hash_pointers(size(hashes)), help_pointers(size(helps))
    type(c_version) :: history(size(hashes))
    if (size(hashes) /= size(helps)) then
      call refuse('A history has as many hashes as helps', stat)
      return
    end if
    call point_at(hashes, hash_texts, hash_pointers)
    call point_at(helps, help_texts, help_pointers)
    history%hash = hash_pointers
    history%help = help_pointers
    if (opens) then
      call tell(c_open(c_text(name), history, size(history, kind=c_size_t), file%handle), stat)
    else
      call tell(c_version_create(file%handle, c_text(name), history, &
        size(history, kind=c_size_t)), stat)
    end if
  end subroutine

  subroutine file_flush(self, stat)
    class(vexa_file), intent(in) :: self
    integer, intent(out), optional :: stat
    call tell(c_flush(self%handle), stat)
  end subroutine

  subroutine file_close(self, stat)
    class(vexa_file), intent(inout) :: self
    integer, intent(out), optional :: stat
    type(c_ptr) :: handle
    handle = self%handle
    self%handle = c_null_ptr
    call tell(c_close(handle), stat)
  end subroutine

  ! The bytes that wait in the file; in all files, if it is not open.
  integer(c_int64_t) function file_waiting(self) result(bytes)
    class(vexa_file), intent(in) :: self
    call tell(c_waiting(self%handle, bytes))
  end function

  subroutine file_create_version(self, name, hashes, helps, stat)
    class(vexa_file), intent(inout) :: self
    character(*), intent(in) :: name, hashes(:), helps(:)
    integer, intent(out), optional :: stat
    call use_history(self, name, hashes, helps, .false., stat)
  end subroutine

  ! The number of entries of a version record.
  integer(c_int64_t) function file_version(self, name) result(entries)
    class(vexa_file), intent(in) :: self
    character(*), intent(in) :: name
    call tell(c_version_size(self%handle, c_text(name), entries))
  end function

  ! compress (true if it is left out) and the lengths of chunks, in rows, are for new objects.
  subroutine table_open(self, file, name, legend, compress, chunk_rows, stat)
    class(vexa_table), intent(inout) :: self
    type(vexa_file), intent(in) :: file
    character(*), intent(in) :: name, legend(:)
    logical, intent(in), optional :: compress
    integer, intent(in), optional :: chunk_rows
    integer, intent(out), optional :: stat
    character(len(legend) + 1), target :: texts(size(legend))
    type(c_ptr) :: pointers(size(legend))
    call point_at(legend, texts, pointers)
    call tell(c_table_open(file%handle, c_text(name), pointers, size(legend, kind=c_size_t), &
      c_flag(compress), c_rows(chunk_rows, 512), self%handle), stat)
  end subroutine

  subroutine table_append_row(self, row, stat)
    class(vexa_table), intent(in) :: self
    real(c_double), intent(in), contiguous :: row(:)
    integer, intent(out), optional :: stat
    call tell(c_table_append(self%handle, row, size(row, kind=c_size_t)), stat)
  end subroutine

  subroutine table_append_rows(self, rows, stat)
    class(vexa_table), intent(in) :: self
    real(c_double), intent(in), contiguous :: rows(:, :)
    integer, intent(out), optional :: stat
    call tell(c_table_append_rows(self%handle, rows, size(rows, 2, c_size_t), &
      size(rows, 1, c_size_t)), stat)
  end subroutine

  ! How many there are, with those that wait.
  integer(c_int64_t) function table_rows(self) result(rows)
    class(vexa_table), intent(in) :: self
    integer(c_int64_t) :: columns
    call tell(c_table_size(self%handle, rows, columns))
  end function

  subroutine coefs_open(self, file, name, time_name, values_name, compress, index_chunk_rows, &
      values_chunk_rows, stat)
    class(vexa_coefs), intent(inout) :: self
    type(vexa_file), intent(in) :: file
    character(*), intent(in) :: name, time_name, values_name
    logical, intent(in), optional :: compress
    integer, intent(in), optional :: index_chunk_rows, values_chunk_rows
    integer, intent(out), optional :: stat
    call tell(c_coefs_open(file%handle, c_text(name), c_text(time_name), c_text(values_name), &
      c_flag(compress), c_rows(index_chunk_rows, 512), c_rows(values_chunk_rows, 4096), &
      self%handle), stat)
  end subroutine

  subroutine coefs_append_step(self, time, values, stat)
    class(vexa_coefs), intent(in) :: self
    real(c_double), intent(in) :: time
    real(c_double), intent(in), contiguous :: values(:)
    integer, intent(out), optional :: stat
    call tell(c_coefs_append(self%handle, time, values, size(values, kind=c_size_t)), stat)
  end subroutine

  subroutine coefs_append_steps(self, times, counts, values, stat)
    class(vexa_coefs), intent(in) :: self
    real(c_double), intent(in), contiguous :: times(:), values(:)
    integer, intent(in) :: counts(:)
    integer, intent(out), optional :: stat
    if (size(counts) /= size(times) .or. any(counts < 0) .or. &
        sum(int(counts, c_int64_t)) /= size(values, kind=c_int64_t)) then
      call refuse('The counts of the steps are not those of the times and the values', stat)
      return
    end if
    call tell(c_coefs_append_steps(self%handle, size(times, kind=c_size_t), times, &
      int(counts, c_size_t), values), stat)
  end subroutine

  integer(c_int64_t) function coefs_steps(self) result(steps)
    class(vexa_coefs), intent(in) :: self
    call tell(c_coefs_size(self%handle, steps))
  end function

  subroutine tensors_open(self, file, name, time_name, values_name, dim, symmetry, mesh_dim, &
      compress, index_chunk_rows, values_chunk_rows, stat)
    class(vexa_tensors), intent(inout) :: self
    type(vexa_file), intent(in) :: file
    character(*), intent(in) :: name, time_name, values_name, symmetry
    integer, intent(in) :: dim, mesh_dim
    logical, intent(in), optional :: compress
    integer, intent(in), optional :: index_chunk_rows, values_chunk_rows
    integer, intent(out), optional :: stat
    self%mesh_dim = mesh_dim
    self%rank = len_trim(symmetry)
    call tell(c_tensors_open(file%handle, c_text(name), c_text(time_name), c_text(values_name), &
      int(dim, c_int), c_text(symmetry), int(mesh_dim, c_int), c_flag(compress), &
      c_rows(index_chunk_rows, 64), c_rows(values_chunk_rows, 16384), self%handle), stat)
  end subroutine

  subroutine tensors_append_0d(self, time, values, stat)
    class(vexa_tensors), intent(in) :: self
    real(c_double), intent(in) :: time
    real(c_double), intent(in), contiguous :: values(:)
    integer, intent(out), optional :: stat
    call append_step_of(self, time, shape(values), values, stat)
  end subroutine

  subroutine tensors_append_1d(self, time, values, stat)
    class(vexa_tensors), intent(in) :: self
    real(c_double), intent(in) :: time
    real(c_double), intent(in), contiguous :: values(:, :)
    integer, intent(out), optional :: stat
    call append_step_of(self, time, shape(values), values, stat)
  end subroutine

  subroutine tensors_append_2d(self, time, values, stat)
    class(vexa_tensors), intent(in) :: self
    real(c_double), intent(in) :: time
    real(c_double), intent(in), contiguous :: values(:, :, :)
    integer, intent(out), optional :: stat
    call append_step_of(self, time, shape(values), values, stat)
  end subroutine

  subroutine tensors_append_3d(self, time, values, stat)
    class(vexa_tensors), intent(in) :: self
    real(c_double), intent(in) :: time
    real(c_double), intent(in), contiguous :: values(:, :, :, :)
    integer, intent(out), optional :: stat
    call append_step_of(self, time, shape(values), values, stat)
  end subroutine

  ! The last extent is that of the components, which the library does not see.
  subroutine append_step_of(self, time, extents, values, stat)
    class(vexa_tensors), intent(in) :: self
    real(c_double), intent(in) :: time
    integer, intent(in) :: extents(:)
    real(c_double), intent(in) :: values(*)
    integer, intent(out), optional :: stat
    integer(c_size_t) :: components
    integer(c_int) :: status
    status = c_tensors_components(self%handle, components)
    if (status /= vexa_ok) then
      call tell(status, stat)
    else if (size(extents) /= self%mesh_dim + 1 .or. extents(size(extents)) /= components) then
      call refuse('The values have not the indices of the mesh and, last, of the components', stat)
    else
      call tell(c_tensors_append_steps(self%handle, 1_c_size_t, [time], int(extents, c_int), &
        values), stat)
    end if
  end subroutine

  subroutine tensors_append_steps(self, times, extents, values, stat)
    class(vexa_tensors), intent(in) :: self
    real(c_double), intent(in), contiguous :: times(:)
    integer, intent(in) :: extents(:)
    real(c_double), intent(in) :: values(*)
    integer, intent(out), optional :: stat
    if (size(extents) /= self%mesh_dim) then
      call refuse('The mesh has another number of dimensions', stat)
      return
    end if
    call tell(c_tensors_append_steps(self%handle, size(times, kind=c_size_t), times, &
      int(extents, c_int), values), stat)
  end subroutine

  ! The number of independent components.
  integer function tensors_components(self) result(components)
    class(vexa_tensors), intent(in) :: self
    integer(c_size_t) :: count
    call tell(c_tensors_components(self%handle, count))
    components = int(count)
  end function

  ! Which component a list of indices names; both count from 1.
  integer function tensors_component(self, indices) result(component)
    class(vexa_tensors), intent(in) :: self
    integer, intent(in) :: indices(:)
    integer(c_size_t) :: place
    if (size(indices) /= self%rank) call refuse('The tensor has another number of indices')
    call tell(c_tensors_component(self%handle, int(indices - 1, c_int), place))
    component = int(place) + 1
  end function

  integer(c_int64_t) function tensors_steps(self) result(steps)
    class(vexa_tensors), intent(in) :: self
    call tell(c_tensors_size(self%handle, steps))
  end function

  subroutine text_open(self, file, name, stat)
    class(vexa_text), intent(inout) :: self
    type(vexa_file), intent(in) :: file
    character(*), intent(in) :: name
    integer, intent(out), optional :: stat
    call tell(c_text_open(file%handle, c_text(name), self%handle), stat)
  end subroutine

  subroutine text_append(self, characters, stat)
    class(vexa_text), intent(in) :: self
    character(*), intent(in) :: characters
    integer, intent(out), optional :: stat
    call tell(c_text_append(self%handle, characters, len(characters, c_size_t)), stat)
  end subroutine

  ! The number of strings; text that waits is one more.
  integer(c_int64_t) function text_strings(self) result(strings)
    class(vexa_text), intent(in) :: self
    call tell(c_text_size(self%handle, strings))
  end function

end module
