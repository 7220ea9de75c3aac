package com.kelo.kelosolver;

import static com.kelo.kelosolver.BridgeFixture.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;

/** What a successful run puts into its result object. */
class ResultContentTest {
  @Test
  void beatsAreZeroBasedInTheWholeRecordingAndPadded() throws Exception {
    int[] truth = cycling(12000, 80, 160);
    KELOecgQrsResults r = qrs(withBeats(12000, truth, 0.02, 7));
    assertEquals(0, r.error);
    assertEquals(75.0, r.hr);
    int[] found = peaks(r.rpeaks);
    int[] padding = Arrays.copyOfRange(r.rpeaks, found.length, r.rpeaks.length);
    // (12000 / 200) * 3 + 55 entries, -1 after the beats; onsets and offsets all -1.
    assertArrayEquals(filled(235 - found.length, -1), padding);
    assertArrayEquals(filled(235, -1), r.qrs_onsets);
    assertArrayEquals(filled(235, -1), r.qrs_offsets);
    // Every true beat found within two samples, nothing else.
    boolean near =
        Arrays.stream(found).allMatch(p -> Arrays.stream(truth).anyMatch(t -> Math.abs(t - p) <= 2));
    assertTrue(near && found.length >= truth.length - 2, "found " + Arrays.toString(found));
    assertArrayEquals(new int[6], r.qualities);
  }

  @Test
  void startSecondShiftsPositionsIntoTheWholeRecording() throws Exception {
    double[] recording = regularRecording(70, 150, 8);
    double[] excerpt = Arrays.copyOfRange(recording, 400, recording.length);
    int[] fromRecording = peaks(qrs(recording, 200, 2, FULL_SCALE, 10).rpeaks);
    assertTrue(fromRecording.length > 50);
    assertArrayEquals(Arrays.stream(peaks(qrs(excerpt).rpeaks)).map(p -> p + 400).toArray(), fromRecording);
    // The same positions as detectWaves gives natively (1-based in the excerpt).
    int[] nativePeaks = NativeReference.detectWaves(excerpt, FULL_SCALE, 10);
    assertArrayEquals(Arrays.stream(nativePeaks).map(p -> p + 400 - 1).toArray(), fromRecording);
  }

  @Test
  void windowGradesFollowTheExcerpt() throws Exception {
    double[] minute = regularRecording(60, 160, 9);
    assertEquals(1, qrs(minute, 200, 0, FULL_SCALE, 4).qualities.length);
    assertEquals(12, qrs(minute, 200, 0, FULL_SCALE, 5).qualities.length);
    assertEquals(5, qrs(minute, 200, 10, FULL_SCALE, 10).qualities.length);
    // A silent stretch leaves its window without beats: grade 3.
    Arrays.fill(minute, 4000, 6000, 0.0);
    assertArrayEquals(new int[] {0, 0, 3, 0, 0, 0}, qrs(minute).qualities);
  }

  @Test
  void hrvFieldsEqualTheNativeStatistics() throws Exception {
    int[] truth = cycling(60000, 90, 150, 160, 170, 160, 152, 166);
    KELOecgResults r = hrv(withBeats(60000, truth, 0.02, 10));
    assertEquals(0, r.error);
    // (60000 / 200) * 3 + 200 entries.
    assertEquals(1100, r.rpeaks.length);
    assertArrayEquals(filled(1100, -1), r.tpeaks);
    int[] oneBased = Arrays.stream(peaks(r.rpeaks)).map(p -> p + 1).toArray();
    double[] expected = NativeReference.calcHrv(oneBased, 200);
    assertEquals(0.0, expected[13]);
    assertArrayEquals(Arrays.copyOf(expected, 13), hrvFields(r));
    assertTrue(r.avnn > 0.75 && r.avnn < 0.85 && r.sdnn > 0.0, "avnn " + r.avnn + ", sdnn " + r.sdnn);
  }

  @Test
  void realRecordingMatchesNativeDetection() throws Exception {
    Path file = Path.of(System.getProperty("kelo.testData"), "detect", "100.f32");
    ByteBuffer bytes = ByteBuffer.wrap(Files.readAllBytes(file)).order(ByteOrder.LITTLE_ENDIAN);
    double[] ecg = new double[bytes.remaining() / 4];
    for (int i = 0; i < ecg.length; i++) {
      ecg[i] = bytes.getFloat();
    }
    KELOecgResults r = hrv(ecg, 200, 0, 5.0, 10);
    assertEquals(0, r.error);
    int[] nativePeaks = NativeReference.detectWaves(ecg, 5.0, 10);
    assertArrayEquals(Arrays.stream(nativePeaks).map(p -> p - 1).toArray(), peaks(r.rpeaks));
    assertTrue(r.hr > 60 && r.hr < 90, "hr " + r.hr);
  }

  /** Four HRV runs at once give exactly the results of the same runs one after the other. */
  @Test
  void fourHrvRunsAtOnceEqualOneAfterTheOther() throws Exception {
    double[][] recordings = {
      regularRecording(180, 150, 11),
      withBeats(36000, cycling(36000, 70, 120, 180, 140), 0.03, 12),
      withBeats(48000, cycling(48000, 90, 150, 160, 170, 160, 152, 166), 0.02, 13),
      regularRecording(240, 190, 14),
    };
    String[] alone = new String[recordings.length];
    for (int i = 0; i < recordings.length; i++) {
      alone[i] = describe(hrv(recordings[i]));
    }
    var pool = Executors.newFixedThreadPool(recordings.length);
    try {
      for (int round = 0; round < 3; round++) {
        List<Future<KELOecgResults>> runs = new ArrayList<>();
        for (double[] r : recordings) {
          runs.add(pool.submit(() -> hrv(r)));
        }
        for (int i = 0; i < recordings.length; i++) {
          assertEquals(alone[i], describe(runs.get(i).get()), "recording " + i);
        }
      }
    } finally {
      pool.shutdownNow();
    }
  }

  private static String describe(KELOecgResults r) {
    return r.error + " " + r.hr + " " + Arrays.toString(hrvFields(r)) + " " + Arrays.toString(r.rpeaks) + " "
        + Arrays.toString(r.qualities);
  }
}
