package com.kelo.kelosolver;

import javax.crypto.SealedObject;

/**
 * Entry point to the native ECG analysis library {@code libkeloecgsolver}.
 *
 * <p>Both analysis methods take the whole recording of one lead sampled at 200 Hz, skip
 * {@code startSecond} seconds, and return their result object sealed with the shared AES key
 * (see {@link KELOecgSealedResults} to open it). Analysis failures are reported in the result's
 * {@code error} field; {@code null} is returned only when the Java set-up fails (a result class
 * or a cryptography class cannot be found, or no AES cipher can be made), after the library has
 * printed one line on standard output.
 *
 * <p>Status codes of the {@code error} field: 0 success; 1 {@code ecg} is null; 2 recording
 * length outside the accepted range or {@code fs} not 200; 3 fewer than two R peaks or a heart
 * rate outside 30..220 beats per minute; 4 (HRV only) no spectral line left for the band
 * powers; 5 the excerpt is clipped; 6 the rhythm is irregular; 7 {@code startSecond} negative
 * or not below {@code length / 200 - 5}, or {@code fullScale} not above 0; 8 the analysis ran out
 * of memory (native memory, or Java memory for the samples). If memory runs out while the result
 * itself is being made, one line is printed and {@code null} is returned.
 *
 * <p>Threads: both analysis methods keep no state and may run on several threads at once, with
 * the results of one run after the other.
 */
public class NativeKELOecgSolver {
  static {
    System.loadLibrary("keloecgsolver");
  }

  /**
   * R peaks, heart rate and signal-quality grades of a recording of 3000 to 120000 samples.
   *
   * @param ecg the whole recording, one lead
   * @param fs the sampling rate; must be 200
   * @param startSecond seconds to skip at the start
   * @param fullScale the largest amplitude the acquisition can represent (clipping test)
   * @param windowSeconds length of one quality window in seconds (below 5: one window)
   * @return a {@link SealedObject} holding a {@link KELOecgQrsResults}, or null on a set-up
   *     failure
   */
  public native SealedObject runQRSDetection(
      double[] ecg, int fs, int startSecond, double fullScale, int windowSeconds);

  /**
   * As {@link #runQRSDetection}, for a recording of 36000 to 120000 samples, plus the time- and
   * frequency-domain heart-rate-variability statistics.
   *
   * @return a {@link SealedObject} holding a {@link KELOecgResults}, or null on a set-up failure
   */
  public native SealedObject runHRV(
      double[] ecg, int fs, int startSecond, double fullScale, int windowSeconds);

  /**
   * Every beat of a recording with a label (optional: the two runs above do not need it). The
   * beats labelled {@link KELOecgBeats#NORMAL} are exactly the R peaks that {@link
   * #runQRSDetection} finds in the same excerpt; the others are the beats that a second pass over
   * the detector's curves adds, mostly ectopic beats (see docs/beats.md).
   *
   * <p>Status codes: 0 success; 1 {@code ecg} is null; 2 {@code fs} not 200 or fewer than 3000
   * samples; 3 fewer than two beats found (those found are still returned); 7 {@code
   * startSecond} negative or not below {@code length / 200 - 5}; 8 no memory for the run. There
   * is no upper limit on the length. Keeps no state and may run on several threads at once.
   *
   * @param ecg the whole recording, one lead
   * @param fs the sampling rate; must be 200
   * @param startSecond seconds to skip at the start
   * @return a {@link SealedObject} holding a {@link KELOecgBeats}, or null on a set-up failure
   */
  public native SealedObject detectBeats(double[] ecg, int fs, int startSecond);

  /**
   * The version of the native library, "MAJOR.MINOR.PATCH". A jar built together with the library
   * carries the same version as the Implementation-Version of its manifest.
   */
  public native String getVersion();
}
