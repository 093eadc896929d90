// SPDX-License-Identifier: Apache-2.0
#include "tools/options.h"

std::string convert_usage() {
  return R"(usage: tavo-convert INPUT OUTPUT [--OPTION VALUE ...]
       tavo-convert --info FILE [--transpose 0|1]

Makes genotype files for tavo, or PLINK 1 binary files, from other formats; or says what a genotype file holds.

Input, one of:
  --in PATH
      a text table, plain or gzip: a header line of names, then a line for each sample; fields separated by
      tabs, commas or blanks; genotypes 0, 1, 2, missing as NA, -9, -1 or empty; class 0 (control), 1 (case);
      or a genotype file of either layout, recognised by its content. Samples are called 1, 2, ...
  --bfile PREFIX
      PLINK 1 binary: PREFIX.bed (variant-major), PREFIX.bim, PREFIX.fam
  --vcf PATH
      VCF or BCF, plain or compressed; needs --pheno
About the input:
  --class NAME
      the class column of a table; all other columns are SNPs (default Class)
  --in-transpose 0|1
      the layout of a genotype file where its size fits both (default 0)
  --split
      a VCF record with several alternate alleles becomes a variant for each (default: it is skipped)
  --count a1|a2
      the allele whose copies are counted: the first of the .bim file, ALT in a VCF (default a1, or alt); or the
      other one (a2, or ref)

Output, at least one of:
  --out PATH
      the genotype file
  --make-bed PREFIX
      PREFIX.bed, PREFIX.bim, PREFIX.fam; the counted allele is A1
About the output:
  --transpose 0|1
      1: the SNP-major layout of --out (default 0); with --info: the layout to assume where the size fits both

Phenotype (default: the sixth column of the .fam file, 1 control, 2 case; the class of --in):
  --pheno PATH
      header FID IID and names, then a line for each sample, fields separated by blanks or tabs; cases and
      controls as 1/2 (0 missing) or 0/1, told by the values; missing as NA or -9
  --pheno-name NAME
      the column (default: the only one)
  --quantitative
      the phenotype is a number, for linear regression; missing as NA or -9
  Samples without a phenotype are dropped.

Covariates:
  --covar PATH
      like --pheno; numbers, missing as NA
  --covar-name A,B
      columns, at most 10 (default: all)
  --covar-out PATH
      the covariate file for tavo, the samples in the order of the genotype file

Filters, applied in this order (default: none):
  --keep PATH, --remove PATH
      only, or without, the listed samples: FID IID, or a single IID, on each line
  --extract PATH, --exclude PATH
      only, or without, the listed variant names
  --mind SHARE
      drops samples with a larger share of missing genotypes
  --geno SHARE
      drops variants with a larger share of missing genotypes
  --maf FREQUENCY
      drops variants with a smaller minor allele frequency

Others:
  --info PATH
      says what a genotype file holds
  --help, --version
      alone on the command line

Examples:

  tavo-convert --in table.tsv.gz --out data.tavo --class target
  tavo-convert --bfile study --maf 0.01 --geno 0.05 --out study.tavo
  tavo-convert --vcf study.vcf.gz --pheno pheno.txt --pheno-name T2D --out study.tavo
  tavo-convert --bfile study --pheno pheno.txt --pheno-name BMI --quantitative --out bmi.tavo
      --covar covar.txt --covar-name age,sex --covar-out bmi.covar
  tavo-convert --in data.tavo --make-bed data

Status: 0 done; 1 the input is refused or the output cannot be written; 2 wrong usage; 128 + signal when stopped.
)";
}
