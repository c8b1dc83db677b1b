# Solves the problem that `peers.py convert` wrote into a folder with ECOS:
#   Rscript ecos.R FOLDER EPS
# min c'x s.t. A x = b, h - G x in K (orthant, second-order cones, exponential cones), with
# the residual and gap tolerances at EPS; prints one line of name=value pairs.
library(ECOSolveR)
args <- commandArgs(trailingOnly = TRUE)
folder <- args[1]
eps <- as.numeric(args[2])
meta <- list()
for (line in readLines(file.path(folder, "meta.txt"))) {
  parts <- strsplit(line, " ", fixed = TRUE)[[1]]
  meta[[parts[1]]] <- as.numeric(parts[-1])
}
n <- meta$n
ints <- function(name) readBin(file.path(folder, name), "integer", n = file.size(file.path(folder, name)) / 4, size = 4, endian = "little")
reals <- function(name) readBin(file.path(folder, name), "double", n = file.size(file.path(folder, name)) / 8, size = 8, endian = "little")
matrix_of <- function(name, rows) {
  if (rows == 0) return(NULL)
  Matrix::sparseMatrix(i = ints(paste0(name, "_i.bin")), p = ints(paste0(name, "_p.bin")),
                       x = reals(paste0(name, "_x.bin")), dims = c(rows, n), index1 = FALSE)
}
G <- matrix_of("G", meta$mG)
A <- matrix_of("A", meta$mA)
q <- if (length(meta$q) == 0) NULL else as.integer(meta$q)
started <- proc.time()
result <- ECOS_csolve(c = reals("c.bin"), G = G, h = reals("h.bin"),
                      dims = list(l = as.integer(meta$l), q = q, e = as.integer(meta$e)),
                      A = A, b = reals("b.bin"),
                      control = ecos.control(maxit = 500L, feastol = eps, reltol = eps, abstol = eps))
used <- proc.time() - started
cat(sprintf("exitflag=%d iter=%d pcost=%.17g dcost=%.17g runtime=%.6g cpu=%.6g\n", result$retcodes[["exitFlag"]],
            result$retcodes[["iter"]], result$summary[["pcost"]], result$summary[["dcost"]],
            result$timing[["runtime"]], used[["user.self"]] + used[["sys.self"]]))
