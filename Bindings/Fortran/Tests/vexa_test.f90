! Writes what must be the same in two ways, and what must be refused. The first argument is a folder.
program vexa_test
  use, intrinsic :: iso_c_binding, only: dp => c_double, c_int64_t
  use vexa
  implicit none
  character(1000) :: folder
  type(vexa_file) :: file
  type(vexa_table) :: table
  type(vexa_coefs) :: coefs
  type(vexa_tensors) :: tensors
  integer :: stat, way
  real(dp) :: rows(4, 5), values(2, 3, 6, 2)
  call get_command_argument(1, folder)
  call random_number(rows)
  call random_number(values)
  do way = 1, 2
    call file%open(trim(folder)//'/way'//achar(iachar('0') + way)//'.h5')
    call table%open(file, 'x.dat', ['t', 'x'])
    call coefs%open(file, 'c.coef', 't', 'c')
    call tensors%open(file, 'm.tdm', 't', 'm', dim=3, symmetry='11', mesh_dim=2)
    call write_it()
    call check(table%rows() == 5 .and. coefs%steps() == 3 .and. tensors%steps() == 2, 'sizes')
    call check(tensors%components() == 6 .and. tensors%component([2, 3]) == 5, 'components')
    call refuse_it()
    call file%close()
  end do
  call file%open('none/x.h5', stat=stat)
  call check(stat == vexa_failed .and. index(vexa_last_error(), 'none/x.h5') > 0, 'missing folder')
  call check(file%waiting() == 0_c_int64_t, 'nothing waits')

contains

  subroutine write_it()
    integer :: i
    if (way == 1) then
      call table%append(rows(1:4:3, :))   ! not contiguous
      call coefs%append([1._dp, 2._dp, 3._dp], [2, 0, 3], rows(1, :))
      call tensors%append_steps([1._dp, 2._dp], [2, 3], values)
    else
      do i = 1, 5
        call table%append([rows(1, i), rows(4, i)])
      end do
      call coefs%append(1._dp, rows(1, 1:2))
      call coefs%append(2._dp, rows(1, 1:0))
      call coefs%append(3._dp, rows(1, 3:5))
      call tensors%append(1._dp, values(:, :, :, 1))
      call tensors%append(2._dp, values(:, :, :, 2))
    end if
  end subroutine

  subroutine refuse_it()
    integer :: stats(4)
    call table%append([1._dp], stats(1))
    call check(index(vexa_last_error(), 'x.dat') > 0, 'report of the library')
    call coefs%append([1._dp], [2], [1._dp], stats(2))
    call tensors%append(1._dp, values(:, :, 1:5, 1), stats(3))
    call tensors%append_steps([1._dp], [2], values, stats(4))
    call check(all(stats == vexa_failed), 'refused')
    call check(index(vexa_last_error(), 'dimensions') > 0, 'report of the module')
  end subroutine

  subroutine check(holds, what)
    logical, intent(in) :: holds
    character(*), intent(in) :: what
    if (holds) return
    print '(3a)', what, '; last report: ', vexa_last_error()
    error stop 1
  end subroutine

end program
