package com.kelo.kelosolver;

import static com.kelo.kelosolver.BridgeFixture.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.Arrays;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** The optional labelled-beats method: its normal beats, its ectopic beats and its statuses. */
class BeatsTest {
  static KELOecgBeats beats(double[] ecg, int fs, int start) throws Exception {
    return KELOecgSealedResults.unsealBeats(SOLVER.detectBeats(ecg, fs, start), KEY);
  }

  static int[] labelled(KELOecgBeats r, int label) {
    return IntStream.range(0, r.rpeaks.length).filter(i -> r.labels[i] == label).map(i -> r.rpeaks[i]).toArray();
  }

  /** Adds a ventricular complex (a deep wave, then a tall one and a broad T) at each position. */
  static void addVentricular(double[] x, int[] positions) {
    for (int p : positions) {
      for (int k = Math.max(0, p - FS / 2); k < Math.min(x.length, p + FS / 2); k++) {
        double t = (k - p) / (double) FS;
        x[k] += -1.2 * Math.exp(-0.5 * Math.pow(t / 0.02, 2)) + 0.9 * Math.exp(-0.5 * Math.pow((t - 0.06) / 0.022, 2))
            + 0.45 * Math.exp(-0.5 * Math.pow((t - 0.30) / 0.06, 2));
      }
    }
  }

  @Test
  void normalBeatsAreThoseOfTheQrsRunAndEctopicBeatsAreAddedAsWide() throws Exception {
    // Every fifth beat of a 160-sample rhythm comes 96 samples early and is ventricular.
    int[] all = cycling(24000, 160, 160, 160, 160, 96, 224);
    int[] ectopic = IntStream.range(0, all.length).filter(i -> i % 5 == 4).map(i -> all[i]).toArray();
    int[] sinus = IntStream.range(0, all.length).filter(i -> i % 5 != 4).map(i -> all[i]).toArray();
    double[] ecg = withBeats(24000, sinus, 0.02, 5);
    addVentricular(ecg, ectopic);
    KELOecgBeats r = beats(ecg, 200, 2);
    assertEquals(0, r.error);
    assertArrayEquals(peaks(qrs(ecg, 200, 2, FULL_SCALE, 10).rpeaks), labelled(r, KELOecgBeats.NORMAL));
    int[] wide = labelled(r, KELOecgBeats.WIDE);
    int[] expected = Arrays.stream(ectopic).filter(p -> p >= 400 + 100).toArray();
    assertEquals(expected.length, wide.length, Arrays.toString(wide));
    for (int i = 0; i < wide.length; i++) assertTrue(Math.abs(wide[i] - expected[i]) <= 30);
    assertEquals("wide", KELOecgBeats.labelName(KELOecgBeats.WIDE));
  }

  @Test
  void statusesAndNoUpperLengthLimit() throws Exception {
    assertEquals(1, beats(null, 200, 0).error);
    assertEquals(7, beats(new double[3000], 200, 10).error);
    assertEquals(7, beats(new double[3000], 200, -1).error);
    assertEquals(2, beats(new double[2999], 200, 0).error);
    assertEquals(2, beats(new double[12000], 250, 0).error);
    KELOecgBeats flat = beats(new double[4000], 200, 0);
    assertEquals(3, flat.error);
    assertEquals(0, flat.rpeaks.length);
    // 11 minutes: longer than the QRS run accepts.
    KELOecgBeats longer = beats(regularRecording(660, 160, 3), 200, 0);
    assertEquals(0, longer.error);
    assertTrue(longer.rpeaks.length > 800);
    assertEquals(longer.rpeaks.length, longer.labels.length);
  }
}
