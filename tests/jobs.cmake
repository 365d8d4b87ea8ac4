# jobs
