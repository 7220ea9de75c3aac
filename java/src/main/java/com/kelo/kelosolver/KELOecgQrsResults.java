package com.kelo.kelosolver;

import java.io.Serializable;

/**
 * Result of {@link NativeKELOecgSolver#runQRSDetection}. The native library fills the fields;
 * the field names and types are part of the interface with it.
 *
 * <p>Beat positions are 0-based sample indices into the whole recording that was passed in,
 * followed by -1 up to the length of the array. The onset and offset arrays have the same length
 * and hold -1 throughout (onsets and offsets are not computed).
 */
public class KELOecgQrsResults implements Serializable {
  private static final long serialVersionUID = 1L;

  /** Status: 0 success, otherwise the code explained at {@link NativeKELOecgSolver}. */
  public int error;
  /** Heart rate in beats per minute; 0.0 when it was not computed. */
  public double hr;
  /** R-peak positions, then -1 padding. */
  public int[] rpeaks;
  /** Always -1. */
  public int[] qrs_onsets;
  /** Always -1. */
  public int[] qrs_offsets;
  /** One grade per quality window (0 usable, 3 too few beats, 5 clipped, 6 irregular), or -1. */
  public int[] qualities;

  public KELOecgQrsResults() {}
}
