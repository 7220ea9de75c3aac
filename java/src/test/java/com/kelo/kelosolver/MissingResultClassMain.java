package com.kelo.kelosolver;

/**
 * Runs both analysis methods in a JVM whose class path lacks the result classes; the bridge must
 * print its error line and return null (checked by the test that starts this program).
 */
public final class MissingResultClassMain {
  private MissingResultClassMain() {}

  public static void main(String[] args) {
    NativeKELOecgSolver solver = new NativeKELOecgSolver();
    double[] ecg = new double[12000];
    System.out.println("runQRSDetection returned " + solver.runQRSDetection(ecg, 200, 0, 1.0, 10));
    System.out.println("runHRV returned " + solver.runHRV(ecg, 200, 0, 1.0, 10));
    System.out.println("version " + solver.getVersion());
  }
}
