/* Named values of the quality grades (detectWaves, checkQuality) and of the
   status of an analysis run: the "error" field of the Java bridge's results,
   which keloecg reports too. */
#ifndef KELOECGSOLVER_GRADES_H
#define KELOECGSOLVER_GRADES_H

/* Grade of a whole excerpt: detectWaves' quality, and what checkQuality and
   checkQualityShort return (KELO_EXCERPT_NOT_GRADED when ecg or beats is
   NULL). Clipped: a sample beyond 0.97 * fullScale; irregular: the standard
   deviation of the RR intervals exceeds a quarter of their mean. */
#define KELO_EXCERPT_NOT_GRADED 0
#define KELO_EXCERPT_USABLE 1
#define KELO_EXCERPT_CLIPPED 2
#define KELO_EXCERPT_IRREGULAR 3

/* Grade of one quality window (detectWaves' windowQualities); too few
   beats: fewer than two R peaks in the window. */
#define KELO_WINDOW_USABLE 0
#define KELO_WINDOW_TOO_FEW_BEATS 3
#define KELO_WINDOW_CLIPPED 5
#define KELO_WINDOW_IRREGULAR 6

/* Status of an analysis run, tested in this order: no recording (the array
   is null); bad start or scale (the start second is not below
   length / 200 - 5, or the full scale is not above 0); bad length or rate
   (a length outside the run's limits, or a rate other than 200 Hz); no
   usable beats (fewer than two R peaks, or a heart rate outside 30..220
   beats per minute); no spectrum (HRV runs only: as
   KELO_HRV_STATUS_NO_SPECTRUM of calcHrv). An excerpt graded clipped or
   irregular turns success, no usable beats and no spectrum into
   KELO_STATUS_CLIPPED or KELO_STATUS_IRREGULAR. Out of memory: the
   analysis could not obtain the memory it needs (natively, or the Java
   samples from the JVM). */
#define KELO_STATUS_SUCCESS 0
#define KELO_STATUS_NO_RECORDING 1
#define KELO_STATUS_BAD_LENGTH_OR_RATE 2
#define KELO_STATUS_NO_USABLE_BEATS 3
#define KELO_STATUS_NO_SPECTRUM 4
#define KELO_STATUS_CLIPPED 5
#define KELO_STATUS_IRREGULAR 6
#define KELO_STATUS_BAD_START_OR_SCALE 7
#define KELO_STATUS_OUT_OF_MEMORY 8

#endif
