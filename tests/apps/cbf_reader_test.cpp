// The CBF reader: every cone of the CON and VAR sections lands in the solver's row order
// with the file's orientation undone (non-positive rows flipped, rotated cones mixed,
// exponential triples reversed, dual power cones as negative exponents), matrix
// variables and matrix constraints in packed form, the objective's sense and constant,
// and one exact message for each refusal.
#include <gtest/gtest.h>

#include <cmath>

#include "io/readers.h"
#include "io_checks.h"

namespace {

const double kRoot2 = std::sqrt(2.0);

// Rows 0..20 in ten blocks whose file order is far from the solver's. Row i has the
// coefficient i + 1 on x0 and the constant (i + 1) / 2; row 4, the head of the rotated
// block, also has x1 alone, which the mixing spreads over two rows.
std::string scalarConesText() {
    std::string text = "# every scalar cone\nVER\n3\nPOWCONES\n1 2\n2\n1.0\n3.0\nPOW*CONES\n1 2\n2\n2.0\n2.0\nOBJSENSE\nMAX\n"
                       "VAR\n2 1\nF 2\nCON\n21 10\nEXP 3\nL- 1\nQR 3\nL= 1\n@0:POW 3\nQ 2\nEXP* 3\nL+ 1\n@0:POW* 3\nF 1\n"
                       "OBJACOORD\n1\n0 2.0\nOBJBCOORD\n1.5\nACOORD\n22\n";
    std::string constants = "BCOORD\n21\n";
    for (int i = 0; i < 21; ++i) {
        text += std::to_string(i) + " 0 " + std::to_string(i + 1) + "\n";
        constants += std::to_string(i) + " " + std::to_string((i + 1) / 2.0) + "\n";
    }
    return text + "4 1 1\n" + constants;
}

TEST(CbfReader, ScalarConesGoToTheSolverOrderWithTheFileOrientationUndone) {
    ConicProblem p = readCbf(scalarConesText(), "scalar.cbf");
    EXPECT_EQ(p.format, "CBF");
    ASSERT_EQ(p.m, 20);  // the free row is dropped
    ASSERT_EQ(p.n, 2);
    EXPECT_EQ(p.free_rows, 1);
    EXPECT_EQ(p.linear_rows, 2);
    EXPECT_EQ(p.soc_sizes, (std::vector<int>{3, 2}));
    EXPECT_TRUE(p.sd_sizes.empty());
    EXPECT_EQ(p.exp_triples, 1);
    EXPECT_EQ(p.dual_exp_triples, 1);
    EXPECT_EQ(p.power_exponents, (std::vector<double>{0.25, -0.5}));

    // Solver row r comes from file row f with orientation sign: s_r = sign g_f, so
    // A(r, 0) = -sign (f + 1) and b_r = sign (f + 1) / 2.
    struct Origin {
        int file_row;
        double sign;
    };
    const std::vector<std::pair<int, Origin>> plain = {
        {0, {7, 1}},                                     // L=
        {1, {3, -1}},  {2, {16, 1}},                     // L- then L+, in file order
        {5, {6, 1}},   {6, {11, 1}},  {7, {12, 1}},      // the rotated block's tail, then Q
        {8, {2, 1}},   {9, {1, 1}},   {10, {0, 1}},      // EXP reversed
        {11, {15, 1}}, {12, {14, 1}}, {13, {13, 1}},     // EXP* reversed
        {14, {8, 1}},  {15, {9, 1}},  {16, {10, 1}},     // @0:POW
        {17, {17, 1}}, {18, {18, 1}}, {19, {19, 1}},     // @0:POW*
    };
    auto A = denseRows(p);
    for (const auto& [r, origin] : plain) {
        SCOPED_TRACE(r);
        EXPECT_EQ(A[r][0], -origin.sign * (origin.file_row + 1));
        EXPECT_EQ(A[r][1], 0.0);
        EXPECT_EQ(p.b[r], origin.sign * (origin.file_row + 1) / 2.0);
    }
    // The rotated pair (g4, g5) = (5 x0 + x1 + 2.5, 6 x0 + 3) becomes
    // ((g4 + g5) / sqrt 2, (g4 - g5) / sqrt 2).
    EXPECT_DOUBLE_EQ(A[3][0], -11 / kRoot2);
    EXPECT_DOUBLE_EQ(A[3][1], -1 / kRoot2);
    EXPECT_DOUBLE_EQ(p.b[3], 5.5 / kRoot2);
    EXPECT_DOUBLE_EQ(A[4][0], 1 / kRoot2);
    EXPECT_DOUBLE_EQ(A[4][1], -1 / kRoot2);
    EXPECT_DOUBLE_EQ(p.b[4], -0.5 / kRoot2);

    // MAX: the solver minimises -2 x0; the file's objective is 2 x0 + 1.5.
    EXPECT_TRUE(p.maximise);
    EXPECT_EQ(p.c, (std::vector<double>{-2, 0}));
    EXPECT_EQ(p.objective_constant, 1.5);
    EXPECT_EQ(fileObjective(p, -4.0), 5.5);
    EXPECT_EQ(p.scalar_variables, 2);
}

TEST(CbfReader, ConesOfTheVarSectionBecomeRowsOnTheirVariables) {
    const char* text = "VER\n2\nOBJSENSE\nMIN\nVAR\n9 5\nL+ 2\nF 1\nL- 1\nEXP 3\nQR 2\nCON\n1 1\nL= 1\n"
                       "ACOORD\n1\n0 2 1.0\nBCOORD\n1\n0 -1\n";
    ConicProblem p = readCbf(text, "var.cbf");
    ASSERT_EQ(p.m, 1 + 3 + 2 + 3);
    EXPECT_EQ(p.free_rows, 1);
    EXPECT_EQ(p.linear_rows, 3);
    EXPECT_EQ(p.soc_sizes, (std::vector<int>{2}));
    EXPECT_EQ(p.exp_triples, 1);
    auto A = denseRows(p);
    const std::vector<std::vector<double>> expected = {
        {0, 0, -1, 0, 0, 0, 0, 0, 0},  // x2 - 1 = 0
        {-1, 0, 0, 0, 0, 0, 0, 0, 0},  // x0 >= 0
        {0, -1, 0, 0, 0, 0, 0, 0, 0},  // x1 >= 0
        {0, 0, 0, 1, 0, 0, 0, 0, 0},   // x3 <= 0, flipped
        {0, 0, 0, 0, 0, 0, 0, -1 / kRoot2, -1 / kRoot2},  // rotated (x7, x8), mixed
        {0, 0, 0, 0, 0, 0, 0, -1 / kRoot2, 1 / kRoot2},
        {0, 0, 0, 0, 0, 0, -1, 0, 0},  // EXP (x4, x5, x6) reversed to (x6, x5, x4)
        {0, 0, 0, 0, 0, -1, 0, 0, 0},
        {0, 0, 0, 0, -1, 0, 0, 0, 0},
    };
    for (int i = 0; i < p.m; ++i) {
        for (int j = 0; j < p.n; ++j) EXPECT_DOUBLE_EQ(A[i][j], expected[i][j]) << i << "," << j;
    }
    EXPECT_EQ(p.b[0], -1.0);
}

TEST(CbfReader, MatrixVariablesAndMatrixConstraintsArePacked) {
    const char* text = "VER\n1\nOBJSENSE\nMIN\nPSDVAR\n1\n2\nVAR\n1 1\nF 1\nPSDCON\n1\n2\nCON\n1 1\nL+ 1\nOBJFCOORD\n2\n"
                       "0 0 0 1.0\n0 1 0 3.0\nFCOORD\n1\n0 0 0 1 2.0\nACOORD\n1\n0 0 1.0\nHCOORD\n2\n0 0 1 0 4.0\n0 0 1 1 5.0\n"
                       "DCOORD\n2\n0 0 0 6.0\n0 1 0 7.0\n";
    ConicProblem p = readCbf(text, "psd.cbf");
    // Columns: x0, then X packed (X00, sqrt2 X10, X11). Rows: the L+ row, the matrix
    // constraint (packed), the matrix variable's own cone.
    ASSERT_EQ(p.n, 4);
    ASSERT_EQ(p.m, 7);
    EXPECT_EQ(p.linear_rows, 1);
    EXPECT_EQ(p.sd_sizes, (std::vector<int>{2, 2}));
    EXPECT_EQ(p.matrix_sides, (std::vector<int>{2}));
    EXPECT_EQ(p.matrix_offsets, (std::vector<int>{1}));
    const std::vector<std::vector<double>> expected = {
        {-1, 0, -2 * kRoot2, 0},   // x0 + <F, X> with F(0,1) = F(1,0) = 2
        {0, 0, 0, 0},              // G(0,0) = 6
        {-4 * kRoot2, 0, 0, 0},    // G(1,0) = 4 x0 + 7, packed with sqrt 2
        {-5, 0, 0, 0},             // G(1,1) = 5 x0
        {0, -1, 0, 0}, {0, 0, -1, 0}, {0, 0, 0, -1},
    };
    auto A = denseRows(p);
    for (int i = 0; i < p.m; ++i) {
        for (int j = 0; j < p.n; ++j) EXPECT_DOUBLE_EQ(A[i][j], expected[i][j]) << i << "," << j;
    }
    EXPECT_EQ(p.b, (std::vector<double>{0, 6, 7 * kRoot2, 0, 0, 0, 0}));
    EXPECT_EQ(p.c, (std::vector<double>{0, 1, 3 * kRoot2, 0}));

    // Back to a dense matrix: the packed (1, sqrt2 * 0.5, 2) is [[1, 0.5], [0.5, 2]].
    const double x[] = {9, 1, kRoot2 * 0.5, 2};
    std::vector<double> X = matrixVariable(p, x, 0);
    ASSERT_EQ(X.size(), 4u);
    EXPECT_EQ(X[0], 1);
    EXPECT_DOUBLE_EQ(X[1], 0.5);
    EXPECT_DOUBLE_EQ(X[2], 0.5);
    EXPECT_EQ(X[3], 2);
}

TEST(CbfReader, CommentsBlankLinesCarriageReturnsAndNumberSpellingsAreAccepted) {
    const char* text = "# head\r\nVER\r\n1\r\n\r\n  \r\nOBJSENSE\r\n# between\r\nMIN\r\nVAR\r\n2 1\r\nF 2\r\n"
                       "CON\r\n1 1\r\nL+ 1\r\nACOORD\r\n2\r\n0 0 +1e+0\r\n0 1 -.5\r\nBCOORD\r\n1\r\n0 1.\r\n";
    ConicProblem p = readCbf(text, "spelling.cbf");
    auto A = denseRows(p);
    EXPECT_EQ(A[0][0], -1.0);
    EXPECT_EQ(A[0][1], 0.5);
    EXPECT_EQ(p.b[0], 1.0);
}

// The start of a valid file, to which the refusal cases append.
const std::string kHead = "VER\n1\nOBJSENSE\nMIN\nVAR\n2 1\nF 2\nCON\n2 1\nL+ 2\n";  // 10 lines

TEST(CbfReader, RefusalsNameTheFileTheLineAndTheFault) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"VER\n4\n", "bad.cbf:2: CBF version 4 is not supported (versions 1 to 3 are)"},
        {"OBJSENSE\nMIN\n", "bad.cbf:1: the file must start with VER, not OBJSENSE"},
        {"VER\n1\nVAR\n1 1\nF 1\n", "bad.cbf:5: OBJSENSE is missing"},
        {kHead + "INT\n1\n0\n", "bad.cbf:11: integer variables (INT) are not supported: korvex solves continuous problems"},
        {kHead + "CHANGE\n", "bad.cbf:11: CHANGE (a sequence of problems) is not supported"},
        {kHead + "OBJCOORD\n", "bad.cbf:11: unknown keyword 'OBJCOORD'"},
        {"VER\n1\nOBJSENSE\nMIN\nVAR\n2 1\nR 2\n", "bad.cbf:7: unknown cone 'R'"},
        {"VER\n1\nOBJSENSE\nMIN\nVAR\n2 1\nSVECPSD 2\n", "bad.cbf:7: cone SVECPSD (CBF version 4) is not supported"},
        {"VER\n1\nOBJSENSE\nMIN\nVAR\n2 1\nEXP 2\n", "bad.cbf:7: cone EXP of dimension 2: an exponential cone has 3 entries"},
        {"VER\n1\nOBJSENSE\nMIN\nVAR\n1 1\nQR 1\n", "bad.cbf:7: cone QR of dimension 1: a rotated cone needs at least 2 entries"},
        {"VER\n3\nPOWCONES\n1 3\n3\n1\n1\n1\nOBJSENSE\nMIN\nVAR\n3 1\n@0:POW 3\n",
         "bad.cbf:13: cone @0:POW of dimension 3: only power cones of dimension 3 with 2 parameters are supported (this one has 3)"},
        {"VER\n3\nPOWCONES\n1 2\n2\n1\n1\nOBJSENSE\nMIN\nVAR\n4 1\n@0:POW 4\n",
         "bad.cbf:12: cone @0:POW of dimension 4: only power cones of dimension 3 with 2 parameters are supported (this one has 2)"},
        {"VER\n3\nOBJSENSE\nMIN\nVAR\n3 1\n@1:POW* 3\n", "bad.cbf:7: cone @1:POW* refers to parameter vector 1 but POW*CONES lists 0"},
        {"VER\n3\nPOWCONES\n1 2\n2\n1\n-1\n", "bad.cbf:7: power cone parameters must be positive"},
        {"VER\n1\nOBJSENSE\nMIN\nVAR\n3 2\nF 1\nF 1\n", "bad.cbf:6: the header announces 3 entries but the cones cover 2"},
        {"VER\n1\nOBJSENSE\nMAXIMIZE\n", "bad.cbf:4: objective sense must be MIN or MAX, not 'MAXIMIZE'"},
        {kHead + "ACOORD\n3\n0 0 1\n1 1 1\nBCOORD\n1\n0 1\n", "bad.cbf:15: ACOORD announces 3 lines but 2 come before BCOORD"},
        {kHead + "ACOORD\n1\n0 0 1\n1 1 1\n", "bad.cbf:14: a data line where a keyword is expected (more lines than the count above announces?): '1 1 1'"},
        {kHead + "ACOORD\n2\n0 0 1\n", "bad.cbf:13: ACOORD: the file ends after 1 of 2 lines"},
        {kHead + "ACOORD\n2\n0 0 1\n0 0 2\n", "bad.cbf:14: duplicate coordinate: already given on line 13"},
        {kHead + "ACOORD\n1\n2 0 1\n", "bad.cbf:13: row 2 out of range 0..1"},
        {kHead + "ACOORD\n1\n0 2 1\n", "bad.cbf:13: variable 2 out of range 0..1"},
        {kHead + "ACOORD\n1\n0 -1 1\n", "bad.cbf:13: variable -1 out of range 0..1"},
        {kHead + "ACOORD\n1\n0 0 nan\n", "bad.cbf:13: coefficient is not a finite number: 'nan'"},
        {kHead + "ACOORD\n1\n0 0 inf\n", "bad.cbf:13: coefficient is not a finite number: 'inf'"},
        {kHead + "ACOORD\n1\n0 0 1e999\n", "bad.cbf:13: coefficient is not a finite number: '1e999'"},
        {kHead + "ACOORD\n1\n0 0 1.5x\n", "bad.cbf:13: coefficient is not a finite number: '1.5x'"},
        {kHead + "ACOORD\n1\n0 0 1 7\n", "bad.cbf:13: unexpected text after the coordinate: '7'"},
        {kHead + "ACOORD\n1\n0 0\n", "bad.cbf:13: missing coefficient"},
        {kHead + "ACOORD\nx\n", "bad.cbf:12: number of coordinates is not an integer: 'x'"},
        {kHead + "BCOORD\n2\n0 1\n0 2\n", "bad.cbf:14: duplicate constant for this row: already given on line 13"},
        {kHead + "OBJACOORD\n2\n1 1\n1 2\n", "bad.cbf:14: duplicate objective coefficient: already given on line 13"},
        {kHead + "ACOORD\n0\nVAR\n1 1\nF 1\n", "bad.cbf:13: VAR given twice (first on line 5)"},
        {kHead + "ACOORD\n0\nPSDVAR\n1\n2\n", "bad.cbf:13: PSDVAR must come before the coordinates"},
        {kHead + "HCOORD\n1\n0 0 0 0 1\n", "bad.cbf:13: matrix constraint 0 refers to nothing: none are declared"},
        {"VER\n1\nOBJSENSE\nMIN\nPSDVAR\n1\n2\nFCOORD\n2\n0 0 0 1 1\n0 0 1 0 1\n",
         "bad.cbf:10: row 0 refers to nothing: none are declared"},
        {"VER\n1\nOBJSENSE\nMIN\nPSDVAR\n1\n2\nOBJFCOORD\n2\n0 0 1 1\n0 1 0 1\n",
         "bad.cbf:11: duplicate objective coefficient: already given on line 10"},
        {"VER\n1\nOBJSENSE\nMIN\nPSDVAR\n1\n2\nOBJFCOORD\n1\n0 2 0 1\n", "bad.cbf:10: matrix row 2 out of range 0..1"},
        {"VER\n1\nOBJSENSE\nMIN\nPSDVAR\n1\n0\n", "bad.cbf:7: matrix side 0 out of range 1..65535"},
        // Two lines that declare more than any machine holds are refused before anything
        // is allocated for them.
        {"VER\n1\nOBJSENSE\nMIN\nVAR\n2000000000 1\nF 2000000000\n",
         "bad.cbf: the problem declares 0 rows and 2000000000 columns, more than this machine's memory holds"},
        {"VER\n1\nOBJSENSE\nMIN\nPSDCON\n1\n2\nVAR\n1 1\nF 1\nDCOORD\n2\n0 0 1 1\n0 1 0 1\n",
         "bad.cbf:14: duplicate constant for this row: already given on line 13"},
    };
    expectRefusals(FileFormat::Cbf, "bad.cbf", cases);
}

}  // namespace
