package com.kelo.kelosolver;

import java.io.Serializable;

/**
 * Result of {@link NativeKELOecgSolver#detectBeats}: every beat of the excerpt with its label.
 * The native library fills the fields; their names and types are part of the interface with it.
 *
 * <p>Positions are 0-based sample indices into the whole recording that was passed in, ascending;
 * {@code labels} has one entry per position. The arrays have exactly as many entries as there
 * are beats (no -1 padding), and none after a failed run.
 */
public class KELOecgBeats implements Serializable {
  private static final long serialVersionUID = 1L;

  /** A beat of the R-peak detection: shaped like the average beat. */
  public static final int NORMAL = 1;
  /** Found by the second pass; wide or unlike the average beat (typically ventricular). */
  public static final int WIDE = 2;
  /** Found by the second pass; not wide, and early (typically supraventricular). */
  public static final int PREMATURE = 3;
  /** Found by the second pass; neither wide nor premature. */
  public static final int UNKNOWN = 4;

  /** Status: 0 success, otherwise a code explained at {@link NativeKELOecgSolver#detectBeats}. */
  public int error;
  /** Beat positions. */
  public int[] rpeaks;
  /** One label per beat: {@link #NORMAL}, {@link #WIDE}, {@link #PREMATURE} or {@link #UNKNOWN}. */
  public int[] labels;

  public KELOecgBeats() {}

  /** "normal", "wide", "premature" or "unknown"; null for a value that is not a label. */
  public static String labelName(int label) {
    switch (label) {
      case NORMAL: return "normal";
      case WIDE: return "wide";
      case PREMATURE: return "premature";
      case UNKNOWN: return "unknown";
      default: return null;
    }
  }
}
