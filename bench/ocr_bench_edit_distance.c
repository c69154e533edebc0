/* Edit distance between two code point sequences, for bench/run_ocr_bench.py.
 *
 * Compiled at run time by the benchmark (cc -O2 -shared -fPIC) and called
 * through ctypes; nothing in the project links against it.
 *
 *   long ocrb_distance(a, n, b, m)
 *       Levenshtein distance (unit costs), O(m) memory.
 *
 *   long ocrb_align(a, n, b, m, ai, bj)
 *       One optimal alignment, written as columns (ai[k], bj[k]) in order:
 *       (i, j) match or substitution, (i, -1) deletion of a[i], (-1, j)
 *       insertion of b[j]. ai and bj must hold n + m entries. Returns the
 *       number of columns, or -1 when the (n+1)*(m+1) table cannot be
 *       allocated.
 */
#include <stdint.h>
#include <stdlib.h>

long ocrb_distance(const uint32_t *a, long n, const uint32_t *b, long m)
{
    if (n == 0) return m;
    if (m == 0) return n;
    long *row = malloc(sizeof(long) * (size_t)(m + 1));
    if (!row) return -1;
    for (long j = 0; j <= m; ++j) row[j] = j;
    for (long i = 1; i <= n; ++i) {
        long diag = row[0];
        row[0] = i;
        const uint32_t ca = a[i - 1];
        for (long j = 1; j <= m; ++j) {
            long up = row[j];
            long best = diag + (ca != b[j - 1]);
            if (up + 1 < best) best = up + 1;
            if (row[j - 1] + 1 < best) best = row[j - 1] + 1;
            row[j] = best;
            diag = up;
        }
    }
    long d = row[m];
    free(row);
    return d;
}

long ocrb_align(const uint32_t *a, long n, const uint32_t *b, long m, int32_t *ai, int32_t *bj)
{
    const long w = m + 1;
    int32_t *t = malloc(sizeof(int32_t) * (size_t)(n + 1) * (size_t)w);
    if (!t) return -1;
    for (long j = 0; j <= m; ++j) t[j] = (int32_t)j;
    for (long i = 1; i <= n; ++i) {
        int32_t *cur = t + i * w, *prev = cur - w;
        cur[0] = (int32_t)i;
        const uint32_t ca = a[i - 1];
        for (long j = 1; j <= m; ++j) {
            int32_t best = prev[j - 1] + (ca != b[j - 1]);
            if (prev[j] + 1 < best) best = prev[j] + 1;
            if (cur[j - 1] + 1 < best) best = cur[j - 1] + 1;
            cur[j] = best;
        }
    }
    /* Trace back from the end, then reverse. */
    long k = 0, i = n, j = m;
    while (i > 0 || j > 0) {
        int32_t here = t[i * w + j];
        if (i > 0 && j > 0 && t[(i - 1) * w + j - 1] + (a[i - 1] != b[j - 1]) == here) {
            ai[k] = (int32_t)(i - 1); bj[k] = (int32_t)(j - 1); --i; --j;
        } else if (i > 0 && t[(i - 1) * w + j] + 1 == here) {
            ai[k] = (int32_t)(i - 1); bj[k] = -1; --i;
        } else {
            ai[k] = -1; bj[k] = (int32_t)(j - 1); --j;
        }
        ++k;
    }
    for (long x = 0, y = k - 1; x < y; ++x, --y) {
        int32_t s = ai[x]; ai[x] = ai[y]; ai[y] = s;
        s = bj[x]; bj[x] = bj[y]; bj[y] = s;
    }
    free(t);
    return k;
}
