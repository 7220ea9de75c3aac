package com.kelo.kelosolver;

import java.io.Serializable;

/**
 * Result of {@link NativeKELOecgSolver#runHRV}: the fields of a QRS run plus the
 * heart-rate-variability statistics. Time-domain values are in seconds (nn_rr and pnn50 are
 * fractions), band powers in s², frequencies of the bands: ULF 0-0.0033 Hz, VLF 0.0033-0.04 Hz,
 * LF 0.04-0.15 Hz, HF 0.15-0.4 Hz. Every HRV field is 0.0 when the statistics were not computed.
 */
public class KELOecgResults implements Serializable {
  private static final long serialVersionUID = 1L;

  /** Status: 0 success, otherwise the code explained at {@link NativeKELOecgSolver}. */
  public int error;
  /** Heart rate in beats per minute; 0.0 when it was not computed. */
  public double hr;
  /** NN intervals divided by all intervals. */
  public double nn_rr;
  /** Mean NN interval. */
  public double avnn;
  /** Standard deviation of the NN intervals. */
  public double sdnn;
  /** Standard deviation of the 5-minute segment means (0 when not formed). */
  public double sdann;
  /** Mean of the 5-minute segment standard deviations (-1 when not formed). */
  public double sdnnidx;
  /** Root mean square of successive NN differences. */
  public double rmssd;
  /** Fraction of successive NN differences above 50 ms. */
  public double pnn50;
  /** Total power up to 0.4 Hz. */
  public double tot_pwr;
  /** Ultra-low-frequency power. */
  public double ulf_pwr;
  /** Very-low-frequency power. */
  public double vlf_pwr;
  /** Low-frequency power. */
  public double lf_pwr;
  /** High-frequency power. */
  public double hf_pwr;
  /** LF power divided by HF power. */
  public double lf_hf;
  /** R-peak positions (0-based in the whole recording), then -1 padding. */
  public int[] rpeaks;
  /** Always -1. */
  public int[] ppeaks;
  /** Always -1. */
  public int[] tpeaks;
  /** One grade per quality window (0 usable, 3 too few beats, 5 clipped, 6 irregular), or -1. */
  public int[] qualities;

  public KELOecgResults() {}
}
