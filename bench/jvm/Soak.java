import com.kelo.kelosolver.KELOecgQrsResults;
import com.kelo.kelosolver.KELOecgResults;
import com.kelo.kelosolver.KELOecgSealedResults;
import com.kelo.kelosolver.NativeKELOecgSolver;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;

/**
 * Many calls of the bridge in one JVM: the resident memory of the process before, during and
 * after; then four threads running runHRV at once, each result compared with the single-threaded
 * one. Usage: Soak RECORDING.f32 QRS_CALLS HRV_CALLS (the recording: float32 samples at 200 Hz).
 */
public final class Soak {
  private static final byte[] KEY = KELOecgSealedResults.parseKey(System.getProperty("kelo.aesKey"));
  private static final NativeKELOecgSolver SOLVER = new NativeKELOecgSolver();

  private Soak() {}

  static double[] read(Path file) throws IOException {
    ByteBuffer bytes = ByteBuffer.wrap(Files.readAllBytes(file)).order(ByteOrder.LITTLE_ENDIAN);
    double[] x = new double[bytes.remaining() / 4];
    for (int i = 0; i < x.length; ++i) x[i] = bytes.getFloat();
    return x;
  }

  static long residentKb() throws IOException {
    for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
      if (line.startsWith("VmRSS:")) return Long.parseLong(line.replaceAll("[^0-9]", ""));
    }
    return -1;
  }

  static String fields(KELOecgResults r) {
    return Arrays.toString(new double[] {r.nn_rr, r.avnn, r.sdnn, r.sdann, r.sdnnidx, r.rmssd, r.pnn50,
        r.tot_pwr, r.ulf_pwr, r.vlf_pwr, r.lf_pwr, r.hf_pwr, r.lf_hf}) + " " + r.error + " "
        + Arrays.toString(r.rpeaks);
  }

  static KELOecgResults hrv(double[] x) throws Exception {
    return KELOecgSealedResults.unsealHrv(SOLVER.runHRV(x, 200, 0, 10.0, 10), KEY);
  }

  interface Call {
    void run() throws Exception;
  }

  // Runs `calls` calls, printing the resident memory at tenths of the way.
  static void soak(String what, int calls, Call call) throws Exception {
    System.out.printf("%s: %d calls%n", what, calls);
    long start = System.nanoTime();
    for (int i = 1; i <= calls; ++i) {
      call.run();
      if (i % Math.max(1, calls / 10) == 0) {
        System.gc();
        System.out.printf("  after %7d: resident %7d KB%n", i, residentKb());
      }
    }
    System.out.printf("  %.2f ms per call%n", (System.nanoTime() - start) / 1e6 / calls);
  }

  public static void main(String[] args) throws Exception {
    double[] x = read(Path.of(args[0]));
    int qrsCalls = Integer.parseInt(args[1]);
    int hrvCalls = Integer.parseInt(args[2]);
    System.out.printf("recording: %d samples; resident at start %d KB%n", x.length, residentKb());
    KELOecgQrsResults first = KELOecgSealedResults.unsealQrs(SOLVER.runQRSDetection(x, 200, 0, 10.0, 10), KEY);
    String expectedQrs = Arrays.toString(first.rpeaks) + first.hr + first.error;
    soak("runQRSDetection", qrsCalls, () -> {
      KELOecgQrsResults r = KELOecgSealedResults.unsealQrs(SOLVER.runQRSDetection(x, 200, 0, 10.0, 10), KEY);
      if (!(Arrays.toString(r.rpeaks) + r.hr + r.error).equals(expectedQrs)) throw new AssertionError("QRS differs");
    });
    String expectedHrv = fields(hrv(x));
    soak("runHRV", hrvCalls, () -> {
      if (!fields(hrv(x)).equals(expectedHrv)) throw new AssertionError("HRV differs");
    });

    ExecutorService pool = Executors.newFixedThreadPool(4);
    List<Future<String>> runs = new ArrayList<>();
    for (int t = 0; t < 4 * 50; ++t) runs.add(pool.submit(() -> fields(hrv(x))));
    int same = 0;
    for (Future<String> f : runs) same += f.get().equals(expectedHrv) ? 1 : 0;
    pool.shutdown();
    System.out.printf("four threads, %d runHRV calls: %d equal to the single-threaded result%n", runs.size(), same);
    if (same != runs.size()) System.exit(1);
  }
}
