package com.kelo.kelosolver;

import static com.kelo.kelosolver.BridgeFixture.FULL_SCALE;
import static com.kelo.kelosolver.BridgeFixture.hrv;
import static com.kelo.kelosolver.BridgeFixture.hrvFields;
import static com.kelo.kelosolver.BridgeFixture.peaks;
import static com.kelo.kelosolver.BridgeFixture.qrs;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import org.junit.jupiter.api.Test;

/** What a successful run puts into its result object. */
class ResultContentTest {
  @Test
  void beatsAreZeroBasedInTheWholeRecordingAndPadded() throws Exception {
    int[] truth = SyntheticEcg.regular(12000, 80, 160);
    double[] minute = SyntheticEcg.withBeats(12000, truth, 0.02, 7);
    KELOecgQrsResults r = qrs(minute);
    assertEquals(0, r.error);
    assertEquals(75.0, r.hr);
    assertEquals(235, r.rpeaks.length);  // (12000 / 200) * 3 + 55
    assertEquals(235, r.qrs_onsets.length);
    int[] found = peaks(r.rpeaks);
    for (int i = found.length; i < r.rpeaks.length; i++) {
      assertEquals(-1, r.rpeaks[i]);
    }
    for (int i = 0; i < r.rpeaks.length; i++) {
      assertEquals(-1, r.qrs_onsets[i]);
      assertEquals(-1, r.qrs_offsets[i]);
    }
    // Every true beat found within two samples, nothing else.
    assertTrue(found.length >= truth.length - 2, "found " + found.length + " of " + truth.length);
    for (int p : found) {
      int nearest = Arrays.stream(truth).map(t -> Math.abs(t - p)).min().getAsInt();
      assertTrue(nearest <= 2, "peak at " + p);
    }
    assertArrayEquals(new int[] {0, 0, 0, 0, 0, 0}, r.qualities);
  }

  @Test
  void startSecondShiftsPositionsIntoTheWholeRecording() throws Exception {
    double[] recording = SyntheticEcg.regularRecording(70, 150, 8);
    double[] excerpt = Arrays.copyOfRange(recording, 400, recording.length);
    int[] fromExcerpt = peaks(qrs(excerpt).rpeaks);
    int[] fromRecording = peaks(qrs(recording, 200, 2, FULL_SCALE, 10).rpeaks);
    assertTrue(fromExcerpt.length > 50);
    int[] shifted = Arrays.stream(fromExcerpt).map(p -> p + 400).toArray();
    assertArrayEquals(shifted, fromRecording);
    // The same positions as detectWaves gives natively (1-based in the excerpt).
    int[] nativePeaks = NativeReference.detectWaves(excerpt, FULL_SCALE, 10);
    assertArrayEquals(Arrays.stream(nativePeaks).map(p -> p + 400 - 1).toArray(), fromRecording);
  }

  @Test
  void windowGradesFollowTheExcerpt() throws Exception {
    double[] minute = SyntheticEcg.regularRecording(60, 160, 9);
    assertEquals(6, qrs(minute, 200, 0, FULL_SCALE, 10).qualities.length);
    assertEquals(1, qrs(minute, 200, 0, FULL_SCALE, 4).qualities.length);
    assertEquals(5, qrs(minute, 200, 10, FULL_SCALE, 10).qualities.length);
    // A silent stretch leaves its window without beats: grade 3.
    Arrays.fill(minute, 4000, 6000, 0.0);
    int[] q = qrs(minute, 200, 0, FULL_SCALE, 10).qualities;
    assertEquals(3, q[2]);
    assertEquals(0, q[0]);
  }

  @Test
  void hrvFieldsEqualTheNativeStatistics() throws Exception {
    int length = 60000;
    int[] truth = SyntheticEcg.cycling(length, 90, 150, 160, 170, 160, 152, 166);
    double[] fiveMinutes = SyntheticEcg.withBeats(length, truth, 0.02, 10);
    KELOecgResults r = hrv(fiveMinutes);
    assertEquals(0, r.error);
    assertEquals(1100, r.rpeaks.length);  // (60000 / 200) * 3 + 200
    assertEquals(1100, r.tpeaks.length);
    int[] oneBased = Arrays.stream(peaks(r.rpeaks)).map(p -> p + 1).toArray();
    double[] expected = NativeReference.calcHrv(oneBased, 200);
    assertEquals(0.0, expected[13]);
    assertArrayEquals(Arrays.copyOf(expected, 13), hrvFields(r));
    assertTrue(r.avnn > 0.75 && r.avnn < 0.85, "avnn " + r.avnn);
    assertTrue(r.sdnn > 0.0);
  }

  @Test
  void realRecordingMatchesNativeDetection() throws Exception {
    double[] ecg = readFloat32(Path.of(System.getProperty("kelo.testData"), "detect", "100.f32"));
    KELOecgResults r = hrv(ecg, 200, 0, 5.0, 10);
    assertEquals(0, r.error);
    int[] nativePeaks = NativeReference.detectWaves(ecg, 5.0, 10);
    assertArrayEquals(Arrays.stream(nativePeaks).map(p -> p - 1).toArray(), peaks(r.rpeaks));
    assertTrue(r.hr > 60 && r.hr < 90, "hr " + r.hr);
  }

  static double[] readFloat32(Path file) throws IOException {
    ByteBuffer bytes = ByteBuffer.wrap(Files.readAllBytes(file)).order(ByteOrder.LITTLE_ENDIAN);
    double[] x = new double[bytes.remaining() / 4];
    for (int i = 0; i < x.length; i++) {
      x[i] = bytes.getFloat();
    }
    return x;
  }
}
