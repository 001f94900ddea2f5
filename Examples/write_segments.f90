! Writes the files of a small run, as a simulation in Fortran would write them: the same segments as
! WriteSegments.cpp writes, byte for byte where the mathematical functions give the same numbers.
!
!   write_segments folder        makes folder/segment1.h5 to folder/segment3.h5
!
! Run again after it was killed, it continues where the files end. A failure ends it with the
! library's report, since no call has a stat.
program write_segments
  use, intrinsic :: iso_c_binding, only: dp => c_double
  use vexa
  implicit none

  real(dp), parameter :: time_step = 0.125_dp
  real(dp), parameter :: pi = 3.141592653589793_dp
  integer, parameter :: steps_per_segment = 64
  integer, parameter :: steps_repeated = 8     ! that a segment does again after its checkpoint
  integer, parameter :: steps_per_metric = 8
  integer, parameter :: steps_per_write = 16   ! between writes of what was appended

  type :: segment
    type(vexa_file) :: file
    type(vexa_table) :: energy, position_a, position_b, speed_a, speed_b
    type(vexa_coefs) :: shape
    type(vexa_tensors) :: metric
    type(vexa_text) :: log
  end type

  character(1000) :: folder
  integer :: number
  if (command_argument_count() /= 1) then
    print '(a)', 'usage: write_segments folder'
    error stop 2
  end if
  call get_command_argument(1, folder)
  do number = 1, 3
    call write_segment(trim(folder)//'/segment'//achar(iachar('0') + number)//'.h5', &
      (number - 1)*(steps_per_segment - steps_repeated))
  end do

contains

  subroutine open_segment(s, filename)
    type(segment), intent(inout) :: s
    character(*), intent(in) :: filename
    character(8), parameter :: position(3) = [character(8) :: 'time', 'x', 'y']
    call s%file%open(filename, ['3f2a91c', 'b0c47de'], &
      [character(40) :: 'Energies and positions.', 'Speeds have a table of their own.'])
    call s%energy%open(s%file, '/Run.dir/energy.dat', &
      [character(10) :: 'time', 'kinetic', 'potential', 'total'])
    call s%position_a%open(s%file, '/BodyA.dir/position.dat', position)
    call s%position_b%open(s%file, '/BodyB.dir/position.dat', position)
    call s%speed_a%open(s%file, '/BodyA.dir/speed.dat', [character(5) :: 'time', 'speed'])
    call s%speed_b%open(s%file, '/BodyB.dir/speed.dat', [character(5) :: 'time', 'speed'])
    call s%shape%open(s%file, '/BodyA.dir/shape.coef', 'time', 'coefficients of the radius', &
      index_chunk_rows=512, values_chunk_rows=4096)
    call s%metric%open(s%file, '/Run.dir/metric.tdm', 'time', 'metric', dim=3, symmetry='11', &
      mesh_dim=3, index_chunk_rows=64, values_chunk_rows=16384)
    call s%log%open(s%file, '/Run.dir/log.txt')
  end subroutine

  ! Positions and speeds follow from the time alone: every run writes the same numbers.
  function body(time, phase_shift) result(x_y_speed)
    real(dp), intent(in) :: time, phase_shift
    real(dp) :: x_y_speed(3), phase, radius
    phase = 0.1_dp*time + phase_shift
    radius = 10 - 0.05_dp*time
    x_y_speed = [radius*cos(phase), radius*sin(phase), 0.1_dp*radius]
  end function

  subroutine write_energy(energy, time)
    type(vexa_table), intent(in) :: energy
    real(dp), intent(in) :: time
    real(dp) :: b(3), kinetic, potential
    b = body(time, 0._dp)
    kinetic = b(3)*b(3)
    potential = -1/hypot(b(1), b(2))
    call energy%append([time, kinetic, potential, kinetic + potential])
  end subroutine

  subroutine write_body(position, speed, time, phase_shift)
    type(vexa_table), intent(in) :: position, speed
    real(dp), intent(in) :: time, phase_shift
    real(dp) :: b(3)
    b = body(time, phase_shift)
    call position%append([time, b(1:2)])
    call speed%append([time, b(3)])
  end subroutine

  ! The surface of a body as a series whose terms become more as the body is deformed.
  subroutine write_shape(shape, time)
    type(vexa_coefs), intent(in) :: shape
    real(dp), intent(in) :: time
    integer :: l
    call shape%append(time, [(exp(-real(l, dp))*cos(0.1_dp*l*time), l=0, 3 + int(time/4))])
  end subroutine

  ! A symmetric tensor of rank 2 on a grid of 6 x 6 x 6 points.
  subroutine write_metric(metric, time)
    type(vexa_tensors), intent(in) :: metric
    real(dp), intent(in) :: time
    real(dp) :: values(6, 6, 6, 6)
    integer :: i, j, k, component, point
    do component = 1, 6
      do k = 1, 6
        do j = 1, 6
          do i = 1, 6
            point = i - 1 + 6*(j - 1 + 6*(k - 1))
            values(i, j, k, component) = &
              1 + 0.1_dp*(component - 1)*sin(0.02_dp*point - 0.1_dp*time)
          end do
        end do
      end do
    end do
    call metric%append(time, values)
  end subroutine

  subroutine write_step(s, step)
    type(segment), intent(in) :: s
    integer, intent(in) :: step
    real(dp) :: time
    time = step*time_step
    call write_energy(s%energy, time)
    call write_body(s%position_a, s%speed_a, time, 0._dp)
    call write_body(s%position_b, s%speed_b, time, pi)
    call write_shape(s%shape, time)
    if (mod(step, steps_per_metric) == 0) call write_metric(s%metric, time)
  end subroutine

  ! Writes the steps that the segment's file lacks.
  subroutine write_segment(filename, first_step)
    character(*), intent(in) :: filename
    integer, intent(in) :: first_step
    type(segment) :: s
    character(40) :: line
    integer :: done
    call open_segment(s, filename)
    do done = int(s%energy%rows()) + 1, steps_per_segment
      call write_step(s, first_step + done - 1)
      if (done == steps_per_segment) then
        write (line, '(a, i0, a, i0)') 'did steps ', first_step, ' to ', &
          first_step + steps_per_segment - 1
        call s%log%append(trim(line)//new_line('a'))
      end if
      if (mod(done, steps_per_write) == 0) call s%file%flush()
    end do
    call s%file%close()
    print '(2a, f0.3)', filename, ': times up to ', (first_step + steps_per_segment - 1)*time_step
  end subroutine

end program
