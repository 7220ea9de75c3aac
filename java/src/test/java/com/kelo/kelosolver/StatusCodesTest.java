package com.kelo.kelosolver;

import static com.kelo.kelosolver.BridgeFixture.FULL_SCALE;
import static com.kelo.kelosolver.BridgeFixture.hrv;
import static com.kelo.kelosolver.BridgeFixture.hrvFields;
import static com.kelo.kelosolver.BridgeFixture.qrs;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import org.junit.jupiter.api.Test;

/** Every status of the two runs, in the order the bridge checks them. */
class StatusCodesTest {
  private static int[] filled(int length, int value) {
    int[] a = new int[length];
    Arrays.fill(a, value);
    return a;
  }

  private static void assertFailedQrs(KELOecgQrsResults r, int status, int capacity, int windows) {
    assertEquals(status, r.error);
    assertEquals(0.0, r.hr);
    assertArrayEquals(filled(capacity, -1), r.rpeaks);
    assertArrayEquals(filled(capacity, -1), r.qrs_onsets);
    assertArrayEquals(filled(capacity, -1), r.qrs_offsets);
    assertArrayEquals(filled(windows, -1), r.qualities);
  }

  private static void assertFailedHrv(KELOecgResults r, int status, int capacity, int windows) {
    assertEquals(status, r.error);
    assertEquals(0.0, r.hr);
    assertArrayEquals(new double[13], hrvFields(r));
    assertArrayEquals(filled(capacity, -1), r.rpeaks);
    assertArrayEquals(filled(capacity, -1), r.ppeaks);
    assertArrayEquals(filled(capacity, -1), r.tpeaks);
    assertArrayEquals(filled(windows, -1), r.qualities);
  }

  @Test
  void nullRecordingGivesStatusOne() throws Exception {
    assertFailedQrs(qrs(null, 200, 0, FULL_SCALE, 10), 1, 100, 1);
    assertFailedHrv(hrv(null, 200, 0, FULL_SCALE, 10), 1, 740, 1);
  }

  @Test
  void startAndFullScaleAreCheckedBeforeTheLength() throws Exception {
    double[] fifteenSeconds = new double[3000];
    // 3000 samples: the start must be below 3000 / 200 - 5 = 10.
    assertEquals(7, qrs(fifteenSeconds, 200, 10, FULL_SCALE, 10).error);
    assertTrue(qrs(fifteenSeconds, 200, 9, FULL_SCALE, 10).error != 7);
    assertEquals(7, qrs(fifteenSeconds, 200, -1, FULL_SCALE, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, Integer.MIN_VALUE, FULL_SCALE, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, 0, 0.0, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, 0, -1.0, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, 0, Double.NaN, 10).error);
    // Too short and a start too late: 7, not 2.
    assertFailedQrs(qrs(new double[2000], 200, 5, FULL_SCALE, 10), 7, 100, 1);
    assertFailedHrv(hrv(new double[2000], 200, 5, FULL_SCALE, 10), 7, 740, 1);
    // The window count of a failed run is still that of the excerpt.
    assertFailedQrs(qrs(new double[12000], 200, 60, FULL_SCALE, 10), 7, 100, 1);
    assertFailedQrs(qrs(new double[12000], 200, 0, 0.0, 10), 7, 100, 6);
  }

  @Test
  void lengthAndRateGiveStatusTwo() throws Exception {
    assertFailedQrs(qrs(new double[2999], 200, 0, FULL_SCALE, 10), 2, 100, 1);
    assertFailedQrs(qrs(new double[120001], 200, 0, FULL_SCALE, 10), 2, 100, 60);
    assertFailedHrv(hrv(new double[35999], 200, 0, FULL_SCALE, 10), 2, 740, 17);
    assertFailedHrv(hrv(new double[120001], 200, 0, FULL_SCALE, 10), 2, 740, 60);
    double[] minute = SyntheticEcg.regularRecording(60, 160, 1);
    // A rate other than 200: the beat arrays are sized for that rate.
    assertFailedQrs(qrs(minute, 199, 0, FULL_SCALE, 10), 2, 100, 6);
    assertFailedQrs(qrs(minute, 100, 0, FULL_SCALE, 10), 2, 145, 6);
    // A rate of 0 or below cannot size arrays: the 200 Hz lengths are used.
    assertFailedQrs(qrs(minute, 0, 0, FULL_SCALE, 10), 2, 100, 6);
    assertFailedHrv(hrv(minute, -200, 0, FULL_SCALE, 10), 2, 740, 6);
    // The QRS run accepts what the HRV run refuses.
    double[] almostThreeMinutes = SyntheticEcg.regularRecording(180, 160, 2);
    almostThreeMinutes = Arrays.copyOf(almostThreeMinutes, 35999);
    assertEquals(0, qrs(almostThreeMinutes).error);
    assertEquals(2, hrv(almostThreeMinutes).error);
  }

  @Test
  void noBeatsOrImplausibleRateGiveStatusThree() throws Exception {
    assertFailedQrs(qrs(new double[12000]), 3, 100, 6);
    assertFailedHrv(hrv(new double[60000]), 3, 740, 30);
    // Beats every 2.4 s: 25 beats per minute, below the accepted band.
    double[] slow = SyntheticEcg.regularRecording(200, 480, 3);
    assertFailedQrs(qrs(slow), 3, 100, 20);
    assertFailedHrv(hrv(slow), 3, 740, 20);
  }

  @Test
  void clippedAndIrregularOverride() throws Exception {
    double[] minute = SyntheticEcg.regularRecording(60, 160, 4);
    KELOecgQrsResults clipped = qrs(minute, 200, 0, 0.5, 10);
    assertEquals(5, clipped.error);
    assertEquals(75.0, clipped.hr);
    assertTrue(BridgeFixture.peaks(clipped.rpeaks).length > 60);
    assertArrayEquals(filled(6, 5), clipped.qualities);

    int length = 60 * 200;
    double[] irregular = SyntheticEcg.withBeats(length, SyntheticEcg.cycling(length, 80, 100, 100, 260), 0.02, 5);
    KELOecgQrsResults r = qrs(irregular);
    assertEquals(6, r.error);
    assertTrue(r.hr > 0.0);

    // A clipped excerpt is reported as such even when the heart rate fails.
    double[] slow = SyntheticEcg.regularRecording(200, 480, 3);
    KELOecgResults slowClipped = hrv(slow, 200, 0, 0.5, 10);
    assertEquals(5, slowClipped.error);
    assertEquals(0.0, slowClipped.hr);
    assertArrayEquals(new double[13], hrvFields(slowClipped));
    assertTrue(BridgeFixture.peaks(slowClipped.rpeaks).length > 0);
  }

  @Test
  void tooFewBeatsForTheSpectrumGiveStatusFour() throws Exception {
    // Three beats one second apart in three silent minutes: a plausible
    // rate, but too few intervals for a periodogram.
    int length = 36000;
    double[] ecg = SyntheticEcg.withBeats(length, new int[] {17000, 17200, 17400}, 0.0, 6);
    KELOecgResults r = hrv(ecg);
    assertEquals(4, r.error);
    assertEquals(60.0, r.hr);
    assertEquals(3, BridgeFixture.peaks(r.rpeaks).length);
  }

  @Test
  void versionIsFixed() {
    assertEquals("1.4.0", BridgeFixture.SOLVER.getVersion());
  }
}
