// The readers: every cone of the CBF sections in the solver's row order with the file's
// orientation undone (non-positive rows flipped, rotated cones mixed, exponential
// triples reversed, dual power cones as negative exponents), matrix variables and
// constraints packed, the objective's sense and constant; SDPA blocks; every MPS section
// and bound type, fixed and free columns giving the same problem; one exact message for
// each refusal.
#include <gtest/gtest.h>

#include <cmath>

#include "io/readers.h"
#include "io_checks.h"
#include "support/capture.h"

using namespace korvex;

namespace {

const double kRoot2 = std::sqrt(2.0);

void expectRows(const ConicProblem& p, const std::vector<std::vector<double>>& A, const std::vector<double>& b) {
    ASSERT_EQ(p.m, static_cast<int>(A.size()));
    auto dense = denseRows(p);
    for (int i = 0; i < p.m; ++i) {
        for (int j = 0; j < p.n; ++j) EXPECT_DOUBLE_EQ(dense[i][j], A[i][j]) << "A(" << i << "," << j << ")";
        EXPECT_DOUBLE_EQ(p.b[i], b[i]) << "b" << i;
    }
}

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
    expectRows(p, {
        {0, 0, -1, 0, 0, 0, 0, 0, 0},  // x2 - 1 = 0
        {-1, 0, 0, 0, 0, 0, 0, 0, 0},  // x0 >= 0
        {0, -1, 0, 0, 0, 0, 0, 0, 0},  // x1 >= 0
        {0, 0, 0, 1, 0, 0, 0, 0, 0},   // x3 <= 0, flipped
        {0, 0, 0, 0, 0, 0, 0, -1 / kRoot2, -1 / kRoot2},  // rotated (x7, x8), mixed
        {0, 0, 0, 0, 0, 0, 0, -1 / kRoot2, 1 / kRoot2},
        {0, 0, 0, 0, 0, 0, -1, 0, 0},  // EXP (x4, x5, x6) reversed to (x6, x5, x4)
        {0, 0, 0, 0, 0, -1, 0, 0, 0},
        {0, 0, 0, 0, -1, 0, 0, 0, 0},
    }, {-1, 0, 0, 0, 0, 0, 0, 0, 0});
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
    expectRows(p, {
        {-1, 0, -2 * kRoot2, 0},   // x0 + <F, X> with F(0,1) = F(1,0) = 2
        {0, 0, 0, 0},              // G(0,0) = 6
        {-4 * kRoot2, 0, 0, 0},    // G(1,0) = 4 x0 + 7, packed with sqrt 2
        {-5, 0, 0, 0},             // G(1,1) = 5 x0
        {0, -1, 0, 0}, {0, 0, -1, 0}, {0, 0, 0, -1},
    }, {0, 6, 7 * kRoot2, 0, 0, 0, 0});
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


// The sample of the SDPLIB format note, with a third, diagonal block added.
const char* const kSdpaSample = "\"A sample problem.\n* a second comment\n2 =mdim\n3 =nblocks\n{2, 2, -2}\n10.0 20.0\n0 1 1 1 1.0\n"
                                "0 1 2 2 2.0\n0 2 1 1 3.0\n0 2 2 2 4.0\n1 1 1 1 1.0\n1 1 2 2 1.0\n2 1 2 2 1.0\n2 2 1 1 5.0\n"
                                "2 2 2 1 2.0\n2 2 2 2 6.0\n1 3 1 1 7.0\n0 3 2 2 8.0\n2 3 2 2 -1.0\n";

TEST(SdpaReader, BlocksBecomeNonNegativeRowsThenPackedMatrices) {
    ConicProblem p = readSdpa(kSdpaSample, "sample.dat-s");
    EXPECT_EQ(p.format, "SDPA");
    ASSERT_EQ(p.n, 2);
    EXPECT_EQ(p.linear_rows, 2);
    EXPECT_EQ(p.sd_sizes, (std::vector<int>{2, 2}));
    EXPECT_EQ(p.c, (std::vector<double>{10, 20}));
    // s = svec(F1 x1 + F2 x2 - F0): A = -svec(Fi), b = -svec(F0). The entry "2 2 2 1"
    // is below the diagonal and stands for (1, 2) as well.
    expectRows(p,
               {{-7, 0}, {0, 1},                   // diagonal block
                {-1, 0}, {0, 0}, {-1, -1},         // diag(1, 1) x1 + diag(0, 1) x2 - diag(1, 2)
                {0, -5}, {0, -2 * kRoot2}, {0, -6}},  // [[5, 2], [2, 6]] x2 - diag(3, 4)
               {0, -8, -1, 0, -2, -3, 0, -4});
    EXPECT_EQ(p.scalar_variables, 2);
    EXPECT_FALSE(p.maximise);
}

TEST(SdpaReader, RefusalsNameTheFileTheLineAndTheFault) {
    const std::string head = "2\n2\n{2 -2}\n1 1\n";  // 4 lines
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\"only a comment\n", "bad.dat-s:1: the file ends before the number of constraint matrices"},
        {"x\n", "bad.dat-s:1: the number of constraint matrices is not an integer"},
        {"0\n1\n{1}\n", "bad.dat-s:1: the number of constraint matrices must be positive"},
        {"1\n1\n{0}\n1\n", "bad.dat-s:3: block size 0 is out of range"},
        {"2\n1\n{2}\n1\n", "bad.dat-s:4: the file ends before the costs"},
        {"1\n1\n{2}\n1 2\n", "bad.dat-s:4: unexpected text after the costs: '2'"},
        {head + "1 2 1 2 1.0\n", "bad.dat-s:5: entry (1, 2) off the diagonal of a diagonal block"},
        {head + "1 3 1 1 1.0\n", "bad.dat-s:5: block number 3 out of range 1..2"},
        {head + "3 1 1 1 1.0\n", "bad.dat-s:5: matrix number 3 out of range 0..2"},
        {head + "1 1 3 1 1.0\n", "bad.dat-s:5: row 3 out of range 1..2"},
        {head + "1 1 1 1 nan\n", "bad.dat-s:5: value is not a finite number: 'nan'"},
        {head + "1 1 1 1 1.0 2\n", "bad.dat-s:5: unexpected text after the entry: '2'"},
        {head + "1 1 1 2 1.0\n1 1 2 1 3.0\n", "bad.dat-s:6: duplicate coordinate: already given on line 5"},
        {head + "0 1 1 1 1.0\n0 1 1 1 3.0\n", "bad.dat-s:6: duplicate constant for this row: already given on line 5"},
    };
    expectRefusals(FileFormat::Sdpa, "bad.dat-s", cases);
}

// A data line of fixed MPS: the fields at columns 2, 5, 15, 25, 40 and 50.
std::string fixedLine(const std::vector<std::string>& fields) {
    static const std::size_t kStart[] = {1, 4, 14, 24, 39, 49};
    std::string line(61, ' ');
    for (std::size_t k = 0; k < fields.size(); ++k) line.replace(kStart[k], fields[k].size(), fields[k]);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line + "\n";
}

// Every row type with a range of each sign, a free row, a constant in the objective's
// RHS, and the bounds UP, MI and UP below zero; fixed columns.
std::string mpsFixed() {
    std::string text = "NAME          TEST\n* a comment\nOBJSENSE\n    MAX\nROWS\n";
    for (const char* row : {"N OBJ", "E EQPOS", "E EQNEG", "L LIM", "G GEQ", "E PLAIN", "N OTHER"}) {
        text += fixedLine({std::string(1, row[0]), row + 2});
    }
    text += "COLUMNS\n";
    text += fixedLine({"", "X1", "OBJ", "1.0", "EQPOS", "1.0"});
    text += fixedLine({"", "X1", "LIM", "2.0", "OTHER", "9.0"});
    text += fixedLine({"", "X2", "OBJ", "2.0", "EQNEG", "1.0"});
    text += fixedLine({"", "X2", "GEQ", "3.0", "PLAIN", "1.0"});
    text += fixedLine({"", "X3", "LIM", "1.0", "GEQ", "1.0"});
    text += "RHS\n";
    text += fixedLine({"", "RHS", "OBJ", "-5.0", "EQPOS", "1.0"});
    text += fixedLine({"", "RHS", "EQNEG", "2.0", "LIM", "4.0"});
    text += fixedLine({"", "RHS", "GEQ", "1.0", "PLAIN", "3.0"});
    text += "RANGES\n";
    text += fixedLine({"", "RNG", "EQPOS", "2.0", "EQNEG", "-3.0"});
    text += fixedLine({"", "RNG", "LIM", "1.5", "GEQ", "-2.5"});
    text += "BOUNDS\n";
    text += fixedLine({"UP", "BND", "X1", "8.0"});
    text += fixedLine({"MI", "BND", "X2"});
    text += fixedLine({"UP", "BND", "X2", "6.0"});
    text += fixedLine({"UP", "BND", "X3", "-1.0"});
    return text + "ENDATA\n";
}

// The same problem in free columns, with names too long for fixed columns and no set
// names in RHS and RANGES.
const char* const kMpsFree = "NAME TEST\nOBJSENSE MAXIMIZE\nROWS\n N OBJ\n E EQPOS\n E EQNEG\n L LIM\n G GEQ\n E PLAIN\n N OTHER\n"
                             "COLUMNS\n X1 OBJ 1.0 EQPOS 1.0\n X1 LIM 2.0 OTHER 9.0\n X2 OBJ 2.0 EQNEG 1.0\n"
                             " X2 GEQ 3.0 PLAIN 1.0\n THIRD_COLUMN LIM 1.0 GEQ 1.0\nRHS\n OBJ -5.0 EQPOS 1.0\n EQNEG 2.0 LIM 4.0\n"
                             " GEQ 1.0 PLAIN 3.0\nRANGES\n EQPOS 2.0 EQNEG -3.0\n LIM 1.5 GEQ -2.5\nBOUNDS\n UP BND X1 8.0\n"
                             " MI X2\n UP BND X2 6.0\n UP BND THIRD_COLUMN -1.0\nENDATA\n";

TEST(MpsReader, RowsRangesBoundsSenseAndConstantMapOntoTheSolverRows) {
    CapturedOutput warnings(stderr);
    ConicProblem p = readMps(mpsFixed(), "test.mps");
    const std::string warned = warnings.finish();
    EXPECT_EQ(warned,
              "test.mps:30: warning: negative upper bound on X3 with the default lower bound 0: the lower bound becomes "
              "-infinity\n");
    EXPECT_EQ(p.format, "MPS");
    ASSERT_EQ(p.n, 3);
    EXPECT_EQ(p.free_rows, 1);
    EXPECT_EQ(p.linear_rows, 12);
    expectRows(p,
               {
                   {0, 1, 0},    // PLAIN: 3 - x2 = 0
                   {-1, 0, 0},   // EQPOS, range +2: x1 - 1 >= 0
                   {1, 0, 0},    //                  3 - x1 >= 0
                   {0, -1, 0},   // EQNEG, range -3: x2 + 1 >= 0
                   {0, 1, 0},    //                  2 - x2 >= 0
                   {-2, 0, -1},  // LIM, range 1.5: 2 x1 + x3 - 2.5 >= 0
                   {2, 0, 1},    //                 4 - 2 x1 - x3 >= 0
                   {0, -3, -1},  // GEQ, range 2.5: 3 x2 + x3 - 1 >= 0
                   {0, 3, 1},    //                 3.5 - 3 x2 - x3 >= 0
                   {-1, 0, 0},   // x1 >= 0
                   {1, 0, 0},    // x1 <= 8
                   {0, 1, 0},    // x2 <= 6 (MI: no lower bound)
                   {0, 0, 1},    // x3 <= -1, lower bound gone
               },
               {3, -1, 3, 1, 2, -2.5, 4, -1, 3.5, 0, 8, 6, -1});
    EXPECT_TRUE(p.maximise);
    EXPECT_EQ(p.c, (std::vector<double>{-1, -2, 0}));
    EXPECT_EQ(p.objective_constant, 5.0);
    EXPECT_EQ(p.variable_names, (std::vector<std::string>{"X1", "X2", "X3"}));

    CapturedOutput more(stderr);
    ConicProblem q = readMps(kMpsFree, "free.mps");
    more.finish();
    expectSameProblem(p, q, 0.0);
    EXPECT_EQ(q.variable_names[2], "THIRD_COLUMN");
}

TEST(MpsReader, BoundsLoFxFrPlAndAnUpperBoundBelowAGivenLowerOne) {
    const char* text = "NAME B\nROWS\n N  COST\n E  ROW\nCOLUMNS\n"
                       "    A         COST             1.0   ROW              1.0\n    B         ROW              1.0\n"
                       "    C         ROW              1.0\n    D         ROW              1.0\n"
                       "    E         ROW              1.0\nRHS\n    RHS       ROW              1.0\nBOUNDS\n"
                       " LO BND       A                2.0\n FX BND       B                3.0\n FR BND       C\n"
                       " UP BND       D                5.0\n PL BND       D\n LO BND       E               -3.0\n"
                       " UP BND       E               -1.0\nENDATA\n";
    CapturedOutput warnings(stderr);
    ConicProblem p = readMps(text, "bounds.mps");
    EXPECT_EQ(warnings.finish(), "");  // E's lower bound was given, so UP -1 keeps it
    EXPECT_EQ(p.free_rows, 2);
    expectRows(p,
               {
                   {1, 1, 1, 1, 1},       // 1 - a'x = 0
                   {0, 1, 0, 0, 0},       // B = 3
                   {-1, 0, 0, 0, 0},      // A >= 2
                   {0, 0, 0, -1, 0},      // D >= 0 (PL removed the upper bound)
                   {0, 0, 0, 0, -1},      // E >= -3
                   {0, 0, 0, 0, 1},       // E <= -1
               },
               {1, 3, -2, 0, 3, -1});
}

TEST(MpsReader, FixedColumnsKeepBlanksInNamesAndEmptySetNames) {
    // Names with blanks only read in fixed columns; the RHS set name is left empty, as in
    // several netlib files.
    const std::string text = "NAME\nROWS\n" + fixedLine({"N", "COST"}) + fixedLine({"L", "LIM 1"}) + "COLUMNS\n" +
                             fixedLine({"", "X 1", "COST", "1.0", "LIM 1", "2.0"}) + "RHS\n" +
                             fixedLine({"", "", "LIM 1", "4.0"}) + "ENDATA\n";
    ConicProblem p = readMps(text, "blanks.mps");
    EXPECT_EQ(p.variable_names, (std::vector<std::string>{"X 1"}));
    expectRows(p, {{2}, {-1}}, {4, 0});
}

TEST(MpsReader, RefusalsNameTheFileTheLineAndTheFault) {
    const std::string head = "NAME\nROWS\n N  COST\n L  LIM\nCOLUMNS\n";  // 5 lines
    const std::vector<std::pair<std::string, std::string>> cases = {
        {head + " X COST 1 LIM 1\n", "bad.mps:6: the file ends without ENDATA"},
        {head + " MARKER 'MARKER' 'INTORG'\n", "bad.mps:6: integer markers are not supported: korvex solves continuous problems"},
        {head + " X COST 1 NOPE 1\nENDATA\n", "bad.mps:6: unknown row 'NOPE'"},
        {head + " X COST 1 LIM nan\nENDATA\n", "bad.mps:6: coefficient is not a finite number: 'nan'"},
        {head + " X COST 1 LIM\nENDATA\n", "bad.mps:6: a COLUMNS line has a column, then one or two row and value pairs"},
        {head + " X LIM 1\n X LIM 2\nENDATA\n", "bad.mps:7: duplicate coordinate: already given on line 6"},
        {head + " X COST 1\n X COST 2\nENDATA\n", "bad.mps:7: duplicate coordinate: already given on line 6"},
        {head + " X LIM 1\nRHS\n RHS LIM 1\n RHS LIM 2\nENDATA\n", "bad.mps:9: duplicate right-hand side: already given on line 8"},
        {head + " X LIM 1\nRANGES\n R COST 1\nENDATA\n", "bad.mps:8: a range on a free row"},
        {head + " X LIM 1\nBOUNDS\n BV BND X\nENDATA\n", "bad.mps:8: integer bound type BV is not supported: korvex solves continuous problems"},
        {head + " X LIM 1\nBOUNDS\n UP BND Y 1\nENDATA\n", "bad.mps:8: unknown column 'Y'"},
        {head + " X LIM 1\nBOUNDS\n XX BND X 1\nENDATA\n", "bad.mps:8: unknown bound type 'XX'"},
        {head + " X LIM 1\nQUADOBJ\nENDATA\n", "bad.mps:7: section 'QUADOBJ' is not supported"},
        {"NAME\nROWS\n Q  COST\n", "bad.mps:3: row type must be N, E, L or G, not 'Q'"},
        {"NAME\nROWS\n N  COST\n N  COST\n", "bad.mps:4: row 'COST' declared twice"},
        {"NAME\nCOLUMNS\n", "bad.mps:2: COLUMNS before ROWS"},
        {"NAME\nOBJSENSE\n    UP\n", "bad.mps:3: objective sense must be MIN or MAX, not 'UP'"},
        {"NAME\nROWS\n N  COST\nENDATA\n", "bad.mps:4: the problem has no columns"},
    };
    expectRefusals(FileFormat::Mps, "bad.mps", cases);
}

}  // namespace
