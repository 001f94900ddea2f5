/* Writes the files of a small run, as a simulation in C would write them: the same segments as
 * WriteSegments.cpp writes, byte for byte where the functions of the C library give the same numbers.
 *
 *   write_segments folder        makes folder/segment1.h5 to folder/segment3.h5
 *
 * Run again after it was killed, it continues where the files end. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vexa.h>

enum {
  STEPS_PER_SEGMENT = 64,
  STEPS_REPEATED = 8, /* that a segment does again after its checkpoint */
  STEPS_PER_METRIC = 8,
  STEPS_PER_WRITE = 16, /* between writes of what was appended */
  COMPONENTS = 6,
  POINTS = 6 * 6 * 6
};
static const double time_step = 0.125;

/* A status that is not VEXA_OK ends this program; another one may have better ideas. */
static void check(int status) {
  if (status != VEXA_OK) {
    fprintf(stderr, "write_segments: %s\n", vexa_last_error());
    exit(1);
  }
}

typedef struct body {
  double x, y, speed;
} body;

/* Positions and speeds follow from the time alone: every run writes the same numbers. */
static body body_at(double time, double phase_shift) {
  const double phase = 0.1 * time + phase_shift;
  const double radius = 10 - 0.05 * time;
  body result;
  result.x = radius * cos(phase);
  result.y = radius * sin(phase);
  result.speed = 0.1 * radius;
  return result;
}

typedef struct segment {
  vexa_file* file;
  vexa_table *energy, *position_a, *position_b, *speed_a, *speed_b;
  vexa_coefs* shape;
  vexa_tensors* metric;
  vexa_text* log;
} segment;

static vexa_table* table(vexa_file* file, const char* name, const char* const* legend,
                         size_t columns) {
  vexa_table* result = NULL;
  check(vexa_table_open(file, name, legend, columns, 1, 512, &result));
  return result;
}

static segment open_segment(const char* filename) {
  static const vexa_version history[] = {{"3f2a91c", "Energies and positions."},
                                         {"b0c47de", "Speeds have a table of their own."}};
  static const char* const energy[] = {"time", "kinetic", "potential", "total"};
  static const char* const position[] = {"time", "x", "y"};
  static const char* const speed[] = {"time", "speed"};
  segment s;
  check(vexa_open(filename, history, 2, &s.file));
  s.energy = table(s.file, "/Run.dir/energy.dat", energy, 4);
  s.position_a = table(s.file, "/BodyA.dir/position.dat", position, 3);
  s.position_b = table(s.file, "/BodyB.dir/position.dat", position, 3);
  s.speed_a = table(s.file, "/BodyA.dir/speed.dat", speed, 2);
  s.speed_b = table(s.file, "/BodyB.dir/speed.dat", speed, 2);
  check(vexa_coefs_open(s.file, "/BodyA.dir/shape.coef", "time", "coefficients of the radius", 1,
                        512, 4096, &s.shape));
  check(vexa_tensors_open(s.file, "/Run.dir/metric.tdm", "time", "metric", 3, "11", 3, 1, 64,
                          16384, &s.metric));
  check(vexa_text_open(s.file, "/Run.dir/log.txt", &s.log));
  return s;
}

static void write_energy(vexa_table* energy, double time) {
  const body b = body_at(time, 0);
  const double kinetic = b.speed * b.speed;
  const double potential = -1 / hypot(b.x, b.y);
  double row[4];
  row[0] = time;
  row[1] = kinetic;
  row[2] = potential;
  row[3] = kinetic + potential;
  check(vexa_table_append(energy, row, 4));
}

static void write_body(vexa_table* position, vexa_table* speed, double time, double phase_shift) {
  const body b = body_at(time, phase_shift);
  double row[3];
  row[0] = time;
  row[1] = b.x;
  row[2] = b.y;
  check(vexa_table_append(position, row, 3));
  row[1] = b.speed;
  check(vexa_table_append(speed, row, 2));
}

/* The surface of a body as a series whose terms become more as the body is deformed. */
static void write_shape(vexa_coefs* shape, double time) {
  double terms[16];
  const int count = 4 + (int)(time / 4);
  int l;
  for (l = 0; l < count && l < 16; ++l) {
    terms[l] = exp(-l) * cos(0.1 * l * time);
  }
  check(vexa_coefs_append(shape, time, terms, (size_t)l));
}

/* A symmetric tensor of rank 2 on a grid of 6 x 6 x 6 points. */
static void write_metric(vexa_tensors* metric, double time) {
  static const int extents[3] = {6, 6, 6};
  static double values[COMPONENTS * POINTS];
  int component;
  int point;
  for (component = 0; component < COMPONENTS; ++component) {
    for (point = 0; point < POINTS; ++point) {
      values[component * POINTS + point] =
          1 + 0.1 * component * sin(0.02 * point - 0.1 * time);
    }
  }
  check(vexa_tensors_append(metric, time, extents, values));
}

static void write_step(const segment* s, int step) {
  const double pi = 3.141592653589793;
  const double time = step * time_step;
  write_energy(s->energy, time);
  write_body(s->position_a, s->speed_a, time, 0);
  write_body(s->position_b, s->speed_b, time, pi);
  write_shape(s->shape, time);
  if (step % STEPS_PER_METRIC == 0) {
    write_metric(s->metric, time);
  }
}

/* Writes the steps that the segment's file lacks. */
static void write_segment(const char* filename, int first_step) {
  const segment s = open_segment(filename);
  uint64_t done;
  uint64_t columns;
  char line[80];
  check(vexa_table_size(s.energy, &done, &columns));
  while (done < STEPS_PER_SEGMENT) {
    write_step(&s, first_step + (int)done);
    if (++done == STEPS_PER_SEGMENT) {
      sprintf(line, "did steps %d to %d\n", first_step, first_step + STEPS_PER_SEGMENT - 1);
      check(vexa_text_append(s.log, line, strlen(line)));
    }
    if (done % STEPS_PER_WRITE == 0) {
      check(vexa_flush(s.file));
    }
  }
  check(vexa_close(s.file));
}

int main(int argc, char** argv) {
  char filename[4096];
  int number;
  if (argc != 2 || strlen(argv[1]) > sizeof filename - 32) {
    fprintf(stderr, "usage: write_segments folder\n");
    return 2;
  }
  for (number = 1; number <= 3; ++number) {
    const int behind = (number - 1) * (STEPS_PER_SEGMENT - STEPS_REPEATED);
    sprintf(filename, "%s/segment%d.h5", argv[1], number);
    write_segment(filename, behind);
    printf("%s: times %g to %g\n", filename, behind * time_step,
           (behind + STEPS_PER_SEGMENT - 1) * time_step);
  }
  return 0;
}
