package com.kelo.kelosolver;

import static com.kelo.kelosolver.BridgeFixture.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.Arrays;
import org.junit.jupiter.api.Test;

/** Every status of the two runs, in the order the bridge checks them. */
class StatusCodesTest {
  @Test
  void nullRecordingGivesStatusOne() throws Exception {
    assertFailed(qrs(null, 200, 0, FULL_SCALE, 10), 1, 100, 1);
    assertFailed(hrv(null, 200, 0, FULL_SCALE, 10), 1, 740, 1);
  }

  @Test
  void startAndFullScaleAreCheckedBeforeTheLength() throws Exception {
    double[] fifteenSeconds = new double[3000];
    // 3000 samples: the start must be below 3000 / 200 - 5 = 10.
    assertEquals(7, qrs(fifteenSeconds, 200, 10, FULL_SCALE, 10).error);
    assertNotEquals(7, qrs(fifteenSeconds, 200, 9, FULL_SCALE, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, -1, FULL_SCALE, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, Integer.MIN_VALUE, FULL_SCALE, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, 0, 0.0, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, 0, -1.0, 10).error);
    assertEquals(7, qrs(fifteenSeconds, 200, 0, Double.NaN, 10).error);
    // Too short and a start too late: 7, not 2.
    assertFailed(qrs(new double[2000], 200, 5, FULL_SCALE, 10), 7, 100, 1);
    assertFailed(hrv(new double[2000], 200, 5, FULL_SCALE, 10), 7, 740, 1);
    // The window count of a failed run is still that of the excerpt.
    assertFailed(qrs(new double[12000], 200, 60, FULL_SCALE, 10), 7, 100, 1);
    assertFailed(qrs(new double[12000], 200, 0, 0.0, 10), 7, 100, 6);
  }

  @Test
  void lengthAndRateGiveStatusTwo() throws Exception {
    assertFailed(qrs(new double[2999], 200, 0, FULL_SCALE, 10), 2, 100, 1);
    assertFailed(qrs(new double[120001], 200, 0, FULL_SCALE, 10), 2, 100, 60);
    assertFailed(qrs(new double[120000], 200, 0, FULL_SCALE, 10), 3, 100, 60);
    assertFailed(hrv(new double[35999], 200, 0, FULL_SCALE, 10), 2, 740, 17);
    assertFailed(hrv(new double[120001], 200, 0, FULL_SCALE, 10), 2, 740, 60);
    double[] minute = regularRecording(60, 160, 1);
    // A rate other than 200: the beat arrays are sized for that rate; a
    // rate of 0 or below cannot size them, and the 200 Hz lengths are used.
    assertFailed(qrs(minute, 199, 0, FULL_SCALE, 10), 2, 100, 6);
    assertFailed(qrs(minute, 100, 0, FULL_SCALE, 10), 2, 145, 6);
    assertFailed(qrs(minute, 0, 0, FULL_SCALE, 10), 2, 100, 6);
    assertFailed(hrv(minute, -200, 0, FULL_SCALE, 10), 2, 740, 6);
    // The QRS run accepts what the HRV run refuses.
    double[] almostThreeMinutes = Arrays.copyOf(regularRecording(180, 160, 2), 35999);
    assertEquals(0, qrs(almostThreeMinutes).error);
    assertEquals(2, hrv(almostThreeMinutes).error);
  }

  @Test
  void noBeatsOrImplausibleRateGiveStatusThreeUnlessClipped() throws Exception {
    assertFailed(qrs(new double[12000]), 3, 100, 6);
    assertFailed(hrv(new double[60000]), 3, 740, 30);
    // Beats every 2.4 s: 25 beats per minute, below the accepted band.
    double[] slow = regularRecording(200, 480, 3);
    assertFailed(qrs(slow), 3, 100, 20);
    assertFailed(hrv(slow), 3, 740, 20);
    // A clipped excerpt is reported as such even when the heart rate fails.
    KELOecgResults slowClipped = hrv(slow, 200, 0, 0.5, 10);
    assertEquals(5, slowClipped.error);
    assertEquals(0.0, slowClipped.hr);
    assertArrayEquals(new double[13], hrvFields(slowClipped));
    assertTrue(peaks(slowClipped.rpeaks).length > 0);
  }

  @Test
  void heartRateBandIncludesBothEnds() throws Exception {
    // Median intervals of 400 and 407 samples: 30 and 29.48 (29) beats per
    // minute; of 54.5 (54 and 55 by turns) and 54: 220.18 (220) and 222.2.
    // Two beats are enough for a rate.
    assertEquals(30.0, qrs(withBeats(12000, cycling(12000, 200, 400), 0.0, 13)).hr);
    assertEquals(3, qrs(withBeats(12000, cycling(12000, 200, 407), 0.0, 13)).error);
    assertEquals(220.0, qrs(withBeats(12000, cycling(11880, 80, 54, 55), 0.0, 13)).hr);
    assertEquals(3, qrs(withBeats(12000, cycling(11880, 80, 54), 0.0, 13)).error);
    KELOecgQrsResults two = qrs(withBeats(12000, new int[] {6000, 6160}, 0.0, 13));
    assertEquals(0, two.error);
    assertEquals(75.0, two.hr);
  }

  @Test
  void clippedAndIrregularOverrideSuccess() throws Exception {
    KELOecgQrsResults clipped = qrs(regularRecording(60, 160, 4), 200, 0, 0.5, 10);
    assertEquals(5, clipped.error);
    assertEquals(75.0, clipped.hr);
    assertTrue(peaks(clipped.rpeaks).length > 60);
    assertArrayEquals(filled(6, 5), clipped.qualities);
    KELOecgQrsResults irregular = qrs(withBeats(12000, cycling(12000, 80, 100, 100, 260), 0.02, 5));
    assertEquals(6, irregular.error);
    assertTrue(irregular.hr > 0.0);
  }

  @Test
  void tooFewBeatsForTheSpectrumGiveStatusFour() throws Exception {
    // Three beats one second apart in three silent minutes: a plausible
    // rate, but too few intervals for a periodogram.
    KELOecgResults r = hrv(withBeats(36000, new int[] {17000, 17200, 17400}, 0.0, 6));
    assertEquals(4, r.error);
    assertEquals(60.0, r.hr);
    assertEquals(3, peaks(r.rpeaks).length);
  }
}
