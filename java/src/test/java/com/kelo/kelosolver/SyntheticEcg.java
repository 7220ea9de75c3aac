package com.kelo.kelosolver;

import java.util.Random;

/** Synthetic single-lead ECG at 200 Hz for the bridge tests (millivolts). */
final class SyntheticEcg {
  static final int FS = 200;

  private SyntheticEcg() {}

  private static double gauss(double t, double centre, double width) {
    double z = (t - centre) / width;
    return Math.exp(-0.5 * z * z);
  }

  /** One normal beat at time t seconds from its R peak. */
  static double beat(double t) {
    return 0.12 * gauss(t, -0.20, 0.025)
        - 0.10 * gauss(t, -0.030, 0.008)
        + 1.00 * gauss(t, 0.0, 0.010)
        - 0.20 * gauss(t, 0.028, 0.009)
        + 0.25 * gauss(t, 0.25, 0.045);
  }

  /** Beats at the given 0-based sample positions, plus white noise from a fixed seed. */
  static double[] withBeats(int length, int[] positions, double noise, long seed) {
    double[] x = new double[length];
    for (int p : positions) {
      for (int k = Math.max(0, p - FS / 2); k < Math.min(length, p + FS / 2); k++) {
        x[k] += beat((k - p) / (double) FS);
      }
    }
    Random rng = new Random(seed);
    for (int k = 0; k < length; k++) {
      x[k] += noise * rng.nextGaussian();
    }
    return x;
  }

  /** Beat positions from `first` on, spaced by `rr` samples, while inside `length`. */
  static int[] regular(int length, int first, int rr) {
    int count = first >= length ? 0 : (length - 1 - first) / rr + 1;
    int[] p = new int[count];
    for (int i = 0; i < count; i++) {
      p[i] = first + i * rr;
    }
    return p;
  }

  /** Beat positions with intervals cycling through the given list. */
  static int[] cycling(int length, int first, int... intervals) {
    int n = 0;
    for (int pos = first, i = 0; pos < length; pos += intervals[i++ % intervals.length]) {
      n++;
    }
    int[] p = new int[n];
    for (int pos = first, i = 0; i < n; pos += intervals[i % intervals.length], i++) {
      p[i] = pos;
    }
    return p;
  }

  /** A regular recording: `seconds` long, beats every `rr` samples, light noise. */
  static double[] regularRecording(int seconds, int rr, long seed) {
    int length = seconds * FS;
    return withBeats(length, regular(length, rr / 2, rr), 0.02, seed);
  }
}
