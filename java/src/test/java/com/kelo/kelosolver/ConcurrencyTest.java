package com.kelo.kelosolver;

import static com.kelo.kelosolver.BridgeFixture.qrs;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.concurrent.Callable;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;

/** QRS runs keep no state: runs on two threads at once give the sequential results. */
class ConcurrencyTest {
  @Test
  void twoQrsRunsAtOnceEqualOneAfterTheOther() throws Exception {
    double[] a = SyntheticEcg.regularRecording(300, 150, 11);
    double[] b = SyntheticEcg.withBeats(60000, SyntheticEcg.cycling(60000, 70, 120, 180, 140), 0.03, 12);
    KELOecgQrsResults seqA = qrs(a);
    KELOecgQrsResults seqB = qrs(b);
    ExecutorService pool = Executors.newFixedThreadPool(2);
    try {
      for (int round = 0; round < 3; round++) {
        Callable<KELOecgQrsResults> runA = () -> qrs(a);
        Callable<KELOecgQrsResults> runB = () -> qrs(b);
        Future<KELOecgQrsResults> fa = pool.submit(runA);
        Future<KELOecgQrsResults> fb = pool.submit(runB);
        assertSame(seqA, fa.get());
        assertSame(seqB, fb.get());
      }
    } finally {
      pool.shutdownNow();
    }
  }

  private static void assertSame(KELOecgQrsResults expected, KELOecgQrsResults actual) {
    assertEquals(expected.error, actual.error);
    assertEquals(expected.hr, actual.hr);
    assertArrayEquals(expected.rpeaks, actual.rpeaks);
    assertArrayEquals(expected.qualities, actual.qualities);
  }
}
