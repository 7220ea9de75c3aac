package com.kelo.kelosolver;

/**
 * Direct calls of the library's C entry points (through a small test-only JNI shim), to compare
 * the bridge's results with the native routines on the same data.
 */
final class NativeReference {
  static {
    System.loadLibrary("kelotestreference");
  }

  private NativeReference() {}

  /** detectWaves on the samples: 1-based R-peak positions within them. */
  static native int[] detectWaves(double[] excerpt, double fullScale, int windowSeconds);

  /**
   * calcHrv on 1-based R-peak positions: the 7 time-domain values, the 6 frequency-domain values
   * and the status, in that order.
   */
  static native double[] calcHrv(int[] rpeaks, int fs);
}
