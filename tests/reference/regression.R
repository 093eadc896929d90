# SPDX-License-Identifier: Apache-2.0
#
# Reference values of regressions and distribution functions, by R.
#   Rscript regression.R samples                  a data set: 400 samples, 8 SNPs, 3 covariates, both phenotypes
#   Rscript regression.R fits samples.tsv         deviances, coefficients and standard errors of glm and lm on it
#   Rscript regression.R distributions            tail probabilities
# tests/data/regression/ holds what these print.

exact <- function(x) ifelse(is.na(x), "NA", sprintf("%.17g", x))

print_samples <- function() {
  set.seed(20260101)
  n <- 400
  # Numbers that single precision holds exactly.
  grid <- function(x) round(x * 1024) / 1024
  snps <- sapply(c(0.1, 0.2, 0.3, 0.4, 0.5, 0.25, 0.35, 0.3), function(f) rbinom(n, 2, f))
  snps[sample(n, 9), 6] <- 3  # missing genotypes
  snps[, 7] <- 0              # one genotype only
  covariates <- cbind(grid(rnorm(n)), grid(1960 + 12 * rnorm(n)), rbinom(n, 1, 0.4))
  eta <- -0.6 + 0.8 * (snps[, 3] == 1) + 0.4 * covariates[, 1] + 0.02 * (covariates[, 2] - 1960)
  case <- rbinom(n, 1, 1 / (1 + exp(-eta)))
  trait <- grid(2 + 0.5 * (snps[, 4] == 2) + 0.3 * covariates[, 1] + rnorm(n))
  table <- data.frame(case, trait, covariates, snps)
  names(table) <- c("case", "trait", paste0("c", 1:3), paste0("s", 1:8))
  write.table(table, quote = FALSE, sep = "\t", row.names = FALSE)
}

# Single SNPs: a missing genotype has neither dummy. Pairs: the dummies are the bits of the code.
single <- function(g) cbind(het = as.numeric(g == 1), hom = as.numeric(g == 2))
bits <- function(g) cbind(g %% 2, g %/% 2)
pair <- function(g, h) {
  a <- bits(g)
  b <- bits(h)
  cbind(a, b, a[, 1] * b[, 1], a[, 1] * b[, 2], a[, 2] * b[, 1], a[, 2] * b[, 2])
}

print_fit <- function(model, first, second, n_covariates, fit, design) {
  estimates <- coef(fit)
  errors <- rep(NA, length(estimates))
  errors[!is.na(estimates)] <- sqrt(diag(vcov(fit, complete = FALSE)))
  row <- c(model, first, second, n_covariates, exact(deviance(fit)), fit$rank)
  for (j in seq_len(ncol(design))) {
    row <- c(row, exact(estimates[j]), exact(errors[j]))
  }
  cat(row, sep = "\t")
  cat("\n")
}

print_fits <- function(path) {
  table <- read.delim(path)
  snps <- as.matrix(table[paste0("s", 1:8)])
  all_covariates <- as.matrix(table[paste0("c", 1:3)])
  control <- glm.control(epsilon = 1e-15, maxit = 100)
  # A second fit from the first one's end: the weights of a fit, and so its standard errors, are those before its
  # last step.
  logistic <- function(x) {
    fit <- suppressWarnings(glm.fit(x, table$case, family = binomial(), control = control))
    kept <- !is.na(fit$coefficients)
    again <- suppressWarnings(glm.fit(x[, kept, drop = FALSE], table$case, family = binomial(), control = control,
                                      start = fit$coefficients[kept]))
    if (all(kept)) again else fit
  }
  # Without cases, or controls, of some genotype estimates run away, and where they stop is nobody's truth.
  print_logistic <- function(model, first, second, n_covariates, fit, x) {
    away <- abs(fit$coefficients) > 12
    away[1] <- FALSE  # the intercept stands for samples far from those at hand
    if (!any(away, na.rm = TRUE)) {
      print_fit(model, first, second, n_covariates, structure(fit, class = c("glm", "lm")), x)
    }
  }
  cat("model\tfirst\tsecond\tcovariates\tdeviance\trank\tbeta and se of every column\n")
  for (n_covariates in c(0, 3)) {
    covariates <- all_covariates[, seq_len(n_covariates), drop = FALSE]
    null <- cbind(1, covariates)
    print_logistic("null", 0, 0, n_covariates, logistic(null), null)
    for (i in 1:8) {
      x <- cbind(1, single(snps[, i]), covariates)
      print_logistic("logistic", i, 0, n_covariates, logistic(x), x)
      print_fit("linear", i, 0, n_covariates, lm(table$trait ~ x - 1), x)
    }
    for (i in 2:5) {
      for (j in (i + 1):6) {
        x <- cbind(1, pair(snps[, i], snps[, j]), covariates)
        print_logistic("pair", i, j, n_covariates, logistic(x), x)
      }
    }
  }
}

print_distributions <- function() {
  cat("function\tstatistic\tdf\tlower\tupper\n")
  line <- function(name, x, df, lower, upper) {
    cat(name, exact(x), df, exact(lower), exact(upper), sep = "\t")
    cat("\n")
  }
  for (df in c(1, 2, 3, 8, 30, 100, 997, 3000)) {
    for (x in c(0.001, 0.1, 0.5, 1, 2, 3.84, 7.5, 15, 40, 70, 150, 400, 700)) {
      line("chisq", x, df, pchisq(x, df), pchisq(x, df, lower.tail = FALSE))
      line("t", sqrt(x), df, pt(sqrt(x), df), pt(sqrt(x), df, lower.tail = FALSE))
    }
  }
}

arguments <- commandArgs(trailingOnly = TRUE)
switch(arguments[1], samples = print_samples(), fits = print_fits(arguments[2]),
       distributions = print_distributions())
