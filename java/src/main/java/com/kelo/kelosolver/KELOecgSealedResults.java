package com.kelo.kelosolver;

import java.io.IOException;
import java.security.GeneralSecurityException;
import java.util.HexFormat;
import javax.crypto.SealedObject;
import javax.crypto.spec.SecretKeySpec;

/**
 * Opens the sealed results of {@link NativeKELOecgSolver} with the 16-byte AES key that the
 * native library was built with.
 *
 * <pre>{@code
 * byte[] key = KELOecgSealedResults.parseKey("00112233445566778899aabbccddeeff");
 * KELOecgQrsResults r = KELOecgSealedResults.unsealQrs(solver.runQRSDetection(...), key);
 * }</pre>
 */
public final class KELOecgSealedResults {
  private KELOecgSealedResults() {}

  /** Parses a key written as 32 hexadecimal digits. */
  public static byte[] parseKey(String hex) {
    byte[] key = HexFormat.of().parseHex(hex.trim());
    if (key.length != 16) {
      throw new IllegalArgumentException("an AES key has 16 bytes (32 hex digits), got " + key.length);
    }
    return key;
  }

  /** Opens a sealed result and checks its class. */
  public static <T> T unseal(SealedObject sealed, byte[] key, Class<T> type)
      throws GeneralSecurityException, IOException, ClassNotFoundException {
    if (sealed == null) {
      throw new IllegalArgumentException("no sealed result (the native call failed its set-up)");
    }
    Object content = sealed.getObject(new SecretKeySpec(key, "AES"));
    return type.cast(content);
  }

  /** Opens the result of {@link NativeKELOecgSolver#runQRSDetection}. */
  public static KELOecgQrsResults unsealQrs(SealedObject sealed, byte[] key)
      throws GeneralSecurityException, IOException, ClassNotFoundException {
    return unseal(sealed, key, KELOecgQrsResults.class);
  }

  /** Opens the result of {@link NativeKELOecgSolver#detectBeats}. */
  public static KELOecgBeats unsealBeats(SealedObject sealed, byte[] key)
      throws GeneralSecurityException, IOException, ClassNotFoundException {
    return unseal(sealed, key, KELOecgBeats.class);
  }

  /** Opens the result of {@link NativeKELOecgSolver#runHRV}. */
  public static KELOecgResults unsealHrv(SealedObject sealed, byte[] key)
      throws GeneralSecurityException, IOException, ClassNotFoundException {
    return unseal(sealed, key, KELOecgResults.class);
  }
}
