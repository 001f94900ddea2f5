#!/usr/bin/env python3
"""Writes the files of a small run, as a simulation in Python would write them: the same segments as
WriteSegments.cpp writes, byte for byte where the C library gives the same numbers.

    write_segments.py FOLDER        makes FOLDER/segment1.h5 to FOLDER/segment3.h5

Run again after it was killed, it continues where the files end.
"""

import math
import pathlib
import sys

import numpy as np
import vexa

TIME_STEP = 0.125
STEPS_PER_SEGMENT = 64
STEPS_REPEATED = 8     # that a segment does again after its checkpoint
STEPS_PER_METRIC = 8
STEPS_PER_WRITE = 16   # between writes of what was appended

HISTORY = [("3f2a91c", "Energies and positions."), ("b0c47de", "Speeds have a table of their own.")]


def body_at(time, phase_shift):
    """Positions and speeds follow from the time alone: every run writes the same numbers."""
    phase = 0.1 * time + phase_shift
    radius = 10 - 0.05 * time
    return radius * math.cos(phase), radius * math.sin(phase), 0.1 * radius


def shape_at(time):
    """The surface of a body as a series whose terms become more as the body is deformed."""
    return [math.exp(-l) * math.cos(0.1 * l * time) for l in range(4 + int(time / 4))]


def metric_at(time):
    """A symmetric tensor of rank 2 on a grid of 6 x 6 x 6 points, the first index varying fastest."""
    wave = [math.sin(0.02 * point - 0.1 * time) for point in range(6 ** 3)]
    values = np.array([[1 + 0.1 * component * w for w in wave] for component in range(6)])
    return values.reshape(6, 6, 6, 6).transpose(0, 3, 2, 1)


class Segment:
    def __init__(self, filename):
        self.file = vexa.File(filename, HISTORY)

        def table(name, *legend):
            return self.file.table(name, legend, chunk_rows=512)

        self.energy = table("/Run.dir/energy.dat", "time", "kinetic", "potential", "total")
        self.positions = [table(f"/Body{body}.dir/position.dat", "time", "x", "y") for body in "AB"]
        self.speeds = [table(f"/Body{body}.dir/speed.dat", "time", "speed") for body in "AB"]
        self.shape = self.file.coefs("/BodyA.dir/shape.coef", values_name="coefficients of the radius",
                                     index_chunk_rows=512, values_chunk_rows=4096)
        self.metric = self.file.tensors("/Run.dir/metric.tdm", 3, "11", 3, values_name="metric",
                                        index_chunk_rows=64, values_chunk_rows=16384)
        self.log = self.file.text("/Run.dir/log.txt")

    def write_step(self, step):
        time = step * TIME_STEP
        x, y, speed = body_at(time, 0)
        kinetic = speed * speed
        potential = -1 / abs(complex(x, y))    # the hypot() of the C library
        self.energy.append([time, kinetic, potential, kinetic + potential])
        for phase_shift, position_table, speed_table in zip((0, math.pi), self.positions, self.speeds):
            x, y, speed = body_at(time, phase_shift)
            position_table.append([time, x, y])
            speed_table.append([time, speed])
        self.shape.append(time, shape_at(time))
        if step % STEPS_PER_METRIC == 0:
            self.metric.append(time, metric_at(time))

    def write(self, first_step):
        """Writes the steps that the segment's file lacks."""
        for done in range(len(self.energy), STEPS_PER_SEGMENT):
            self.write_step(first_step + done)
            if done + 1 == STEPS_PER_SEGMENT:
                self.log.append(f"did steps {first_step} to {first_step + done}\n")
            if (done + 1) % STEPS_PER_WRITE == 0:
                self.file.flush()
        self.file.close()


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: write_segments.py FOLDER")
    for number in (1, 2, 3):
        first_step = (number - 1) * (STEPS_PER_SEGMENT - STEPS_REPEATED)
        filename = pathlib.Path(sys.argv[1]) / f"segment{number}.h5"
        Segment(filename).write(first_step)
        print(f"{filename}: times {first_step * TIME_STEP:g} to "
              f"{(first_step + STEPS_PER_SEGMENT - 1) * TIME_STEP:g}")


if __name__ == "__main__":
    main()
