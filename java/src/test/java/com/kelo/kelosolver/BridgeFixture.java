package com.kelo.kelosolver;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Field;
import java.util.Arrays;
import java.util.Random;
import java.util.stream.IntStream;

/**
 * The solver, the key the library was built with (system property kelo.aesKey), result helpers and
 * synthetic single-lead ECG at 200 Hz (millivolts).
 */
final class BridgeFixture {
  static final NativeKELOecgSolver SOLVER = new NativeKELOecgSolver();
  static final byte[] KEY = KELOecgSealedResults.parseKey(System.getProperty("kelo.aesKey"));
  static final double FULL_SCALE = 10.0;
  static final int FS = 200;

  private BridgeFixture() {}

  static KELOecgQrsResults qrs(double[] ecg, int fs, int start, double scale, int window) throws Exception {
    return KELOecgSealedResults.unsealQrs(SOLVER.runQRSDetection(ecg, fs, start, scale, window), KEY);
  }

  static KELOecgQrsResults qrs(double[] ecg) throws Exception {
    return qrs(ecg, FS, 0, FULL_SCALE, 10);
  }

  static KELOecgResults hrv(double[] ecg, int fs, int start, double scale, int window) throws Exception {
    return KELOecgSealedResults.unsealHrv(SOLVER.runHRV(ecg, fs, start, scale, window), KEY);
  }

  static KELOecgResults hrv(double[] ecg) throws Exception {
    return hrv(ecg, FS, 0, FULL_SCALE, 10);
  }

  /** The leading non-negative entries of a padded beat array. */
  static int[] peaks(int[] padded) {
    return Arrays.stream(padded).takeWhile(p -> p >= 0).toArray();
  }

  static int[] filled(int length, int value) {
    return IntStream.generate(() -> value).limit(length).toArray();
  }

  static double[] hrvFields(KELOecgResults r) {
    return new double[] {r.nn_rr, r.avnn, r.sdnn, r.sdann, r.sdnnidx, r.rmssd, r.pnn50,
                         r.tot_pwr, r.ulf_pwr, r.vlf_pwr, r.lf_pwr, r.hf_pwr, r.lf_hf};
  }

  /**
   * A failed run of either kind: its status, every number 0.0, every beat array `capacity` and the
   * grades `windows` entries of -1.
   */
  static void assertFailed(Object result, int status, int capacity, int windows) throws Exception {
    for (Field f : result.getClass().getFields()) {
      Object value = f.get(result);
      String padding = Arrays.toString(filled(f.getName().equals("qualities") ? windows : capacity, -1));
      Object expected = f.getName().equals("error") ? status : value instanceof int[] ? padding : 0.0;
      assertEquals(expected, value instanceof int[] array ? Arrays.toString(array) : value, f.getName());
    }
  }

  private static double gauss(double t, double centre, double width) {
    double z = (t - centre) / width;
    return Math.exp(-0.5 * z * z);
  }

  /** Normal beats at the given 0-based sample positions, plus white noise from a fixed seed. */
  static double[] withBeats(int length, int[] positions, double noise, long seed) {
    double[] x = new double[length];
    for (int p : positions) {
      for (int k = Math.max(0, p - FS / 2); k < Math.min(length, p + FS / 2); k++) {
        double t = (k - p) / (double) FS;
        x[k] += 0.12 * gauss(t, -0.20, 0.025) - 0.10 * gauss(t, -0.030, 0.008) + gauss(t, 0.0, 0.010)
            - 0.20 * gauss(t, 0.028, 0.009) + 0.25 * gauss(t, 0.25, 0.045);
      }
    }
    Random rng = new Random(seed);
    for (int k = 0; k < length; k++) {
      x[k] += noise * rng.nextGaussian();
    }
    return x;
  }

  /** Beat positions from `first` on, intervals cycling through the list, while inside `length`. */
  static int[] cycling(int length, int first, int... intervals) {
    int[] p = new int[length];
    int n = 0;
    for (int pos = first; pos < length; pos += intervals[(n - 1) % intervals.length]) {
      p[n++] = pos;
    }
    return Arrays.copyOf(p, n);
  }

  /** A regular recording: `seconds` long, beats every `rr` samples from rr / 2 on, light noise. */
  static double[] regularRecording(int seconds, int rr, long seed) {
    return withBeats(seconds * FS, cycling(seconds * FS, rr / 2, rr), 0.02, seed);
  }
}
