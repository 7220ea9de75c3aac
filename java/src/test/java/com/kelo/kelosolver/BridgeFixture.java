package com.kelo.kelosolver;

import static org.junit.jupiter.api.Assertions.assertNotNull;

import javax.crypto.SealedObject;

/** The solver and the key the library was built with (system property kelo.aesKey). */
final class BridgeFixture {
  static final NativeKELOecgSolver SOLVER = new NativeKELOecgSolver();
  static final byte[] KEY = KELOecgSealedResults.parseKey(System.getProperty("kelo.aesKey"));
  static final double FULL_SCALE = 10.0;

  private BridgeFixture() {}

  static KELOecgQrsResults qrs(double[] ecg, int fs, int start, double fullScale, int window)
      throws Exception {
    SealedObject sealed = SOLVER.runQRSDetection(ecg, fs, start, fullScale, window);
    assertNotNull(sealed, "runQRSDetection returned null");
    return KELOecgSealedResults.unsealQrs(sealed, KEY);
  }

  static KELOecgQrsResults qrs(double[] ecg) throws Exception {
    return qrs(ecg, 200, 0, FULL_SCALE, 10);
  }

  static KELOecgResults hrv(double[] ecg, int fs, int start, double fullScale, int window)
      throws Exception {
    SealedObject sealed = SOLVER.runHRV(ecg, fs, start, fullScale, window);
    assertNotNull(sealed, "runHRV returned null");
    return KELOecgSealedResults.unsealHrv(sealed, KEY);
  }

  static KELOecgResults hrv(double[] ecg) throws Exception {
    return hrv(ecg, 200, 0, FULL_SCALE, 10);
  }

  /** The leading non-negative entries of a padded beat array. */
  static int[] peaks(int[] padded) {
    int n = 0;
    while (n < padded.length && padded[n] >= 0) {
      n++;
    }
    return java.util.Arrays.copyOf(padded, n);
  }

  static double[] hrvFields(KELOecgResults r) {
    return new double[] {
      r.nn_rr, r.avnn, r.sdnn, r.sdann, r.sdnnidx, r.rmssd, r.pnn50,
      r.tot_pwr, r.ulf_pwr, r.vlf_pwr, r.lf_pwr, r.hf_pwr, r.lf_hf
    };
  }
}
