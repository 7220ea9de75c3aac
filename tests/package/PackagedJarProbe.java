// Run from the unpacked Debian packages: loads the packaged jar and, through
// java.library.path, the native library, and prints the bridge's version
// and the jar's Implementation-Version.
public class PackagedJarProbe {
  public static void main(String[] args) {
    Class<?> solver = com.kelo.kelosolver.NativeKELOecgSolver.class;
    System.out.println("version " + new com.kelo.kelosolver.NativeKELOecgSolver().getVersion()
        + ", jar " + solver.getPackage().getImplementationVersion());
  }
}
